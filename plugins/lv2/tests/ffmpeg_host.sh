#!/bin/sh
# Runs the plugin in ffmpeg's lv2 filter and compares it with the vorl tool
# bit for bit: the plugin's output, shifted by its latency, must equal the
# tool's time-aligned output over their common range, whatever block sizes
# the host uses.
# usage: ffmpeg_host.sh VORL_TOOL DEMO_GENERATOR LV2_DIR WORK_DIR
set -eu
tool=$1
demo=$2
work=$4
export LV2_PATH=$3
rm -rf "$work" && mkdir -p "$work/demo" && cd "$work"
"$demo" demo >/dev/null
ff() { ffmpeg -nostdin -v error -y "$@"; }
ff -i demo/noisy.wav -t 4.5 in.wav       # a zoom-in drive from 2 s to 4 s
ff -i in.wav -f s16le in.raw
frames=$(( $(wc -c <in.raw) / 4 ))
uri='urn\\:libvorl\\:vorl'

# same BLOCK_FILTER CONTROLS REFERENCE LATENCY: plugin output == reference
same() {
    ff -i in.wav -af "$1lv2=p=$uri:c=$2" -f s16le out.raw
    if ! cmp -s -n $(( (frames - $4) * 4 )) -i $(( $4 * 4 )):0 out.raw "$3"; then
        echo "FAIL: blocks '$1' controls '$2' differ from $3 shifted by $4 frames"
        exit 1
    fi
}

"$tool" process in.wav zoom.wav --zoom-in 0-1000 --no-prime -q && ff -i zoom.wav -f s16le zoom.raw
"$tool" process in.wav pulse.wav --zoom-in 0-1000 --pulse --no-prime -q && ff -i pulse.wav -f s16le pulse.raw
"$tool" process in.wav part.wav --zoom-in 0-1000 --strength 0.37 --no-prime -q && ff -i part.wav -f s16le part.raw
"$tool" process in.wav found.wav --no-prime -q && ff -i found.wav -f s16le found.raw    # drives detected
same "" "zoom=1" zoom.raw 768                                  # ffmpeg's own block size
same "asetnsamples=n=1," "zoom=1" zoom.raw 768                 # one frame per call
same "asetnsamples=n=1000," "zoom=1|pulse=1" pulse.raw 1024    # click filter: one block more
same "asetnsamples=n=300," "zoom=1|strength=0" in.raw 768      # strength 0: the input, delayed
same "asetnsamples=n=300," "pulse=1|strength=0" in.raw 1024
same "asetnsamples=n=777," "zoom=1|strength=0.37" part.raw 768  # as the tool's --strength
same "asetnsamples=n=1000," "detect=1" found.raw 9984             # as the tool's own detection
echo "plugin output equals the tool's"
