"""Report pictures for a tuning engineer: what the noise reducer did to a
recording and what the table holds, as PNG files.

    python3 -m vorl.report IN [--processed OUT] [--drive FILE | --zoom-in R ...] [--table T] DIR
    (or: vorl report ...)

Writes into DIR:
  spectrograms.png  the input and the output, drive periods marked above
  removed.png       what was taken away: its spectrogram and the levels of
                    input, output and removed noise over time
  gain.png          the suppression gain per block and bin, and its average
                    over frequency during each kind of drive
  table.png         the table: zoom-noise coefficients per band and channel
                    with their upper bounds, background-noise templates per
                    direction, and the equaliser
"""
import argparse
import os
import sys
import warnings

import numpy as np

import vorl
from vorl import _vorl

RATE_TUNED = 48000
FFT = 1024        # spectrogram analysis: 21 ms at 48 kHz
HOP = 256         # one library block per column ...
MAX_COLUMNS = 3000  # ... or several, so that a long take still fits in memory and on screen
FLOOR_DB = -100.0
DRIVES = (        # (column, value, label, colour)
    (0, 1, "zoom in", "tab:red"),
    (0, 2, "zoom out", "tab:blue"),
    (1, None, "autofocus", "tab:green"),
    (2, 1, "wind", "tab:gray"),
)


def _pyplot():
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    plt.rcParams.update({"figure.dpi": 100, "font.size": 10, "axes.titlesize": 11})
    return plt


def spectrogram_db(audio, minus=None):
    """Power spectrogram of the two channels' mean (of audio − minus, when
    given), dB re full scale, shape (bins, columns); the columns are evenly
    spaced over the recording. Only the frames drawn are read, so a long
    recording costs no copies of itself."""
    hop = HOP * max(1, -(-len(audio) // (HOP * MAX_COLUMNS)))
    starts = np.arange(len(audio) // hop + 1) * hop
    at = starts[:, None] + np.arange(FFT)
    inside = at < len(audio)  # past the end: zeros

    def mean_of(samples):
        x = np.zeros(at.shape)
        x[inside] = samples[at[inside]].astype(np.float64).mean(axis=1) / 32768.0
        return x

    x = mean_of(audio) if minus is None else mean_of(audio) - mean_of(minus)
    window = np.hanning(FFT)
    power = np.abs(np.fft.rfft(x * window, axis=1)) ** 2 / (window.sum() ** 2 / 4)
    return 10 * np.log10(np.maximum(power.T, 10 ** (FLOOR_DB / 10)))


class DriveSpans(list):
    """(label, colour, [(start s, end s), ...]) for every kind of drive
    present, and what the legend calls them."""

    def __init__(self, title):
        super().__init__()
        self.title = title


def drive_spans(drive, rate, title="drive", start=0.0):
    """The runs of `drive` (words per block from the time `start`)."""
    spans = DriveSpans(title)
    seconds = vorl.BLOCK_FRAMES / rate
    for column, value, label, colour in DRIVES:
        on = drive[:, column] != 0 if value is None else drive[:, column] == value
        edges = np.flatnonzero(np.diff(np.concatenate([[0], on.astype(int), [0]])))
        runs = [(start + a * seconds, start + b * seconds) for a, b in zip(edges[::2], edges[1::2])]
        if runs:
            spans.append((label, colour, runs))
    return spans


def mark_drives(ax, spans, legend=True):
    """Drive periods as coloured bars along the top of a time axis."""
    for row, (label, colour, runs) in enumerate(spans):
        for i, (a, b) in enumerate(runs):
            ax.axvspan(a, b, ymin=0.97 - 0.035 * row, ymax=1.0 - 0.035 * row, color=colour,
                       label=label if i == 0 and legend else None)
            ax.axvline(a, color=colour, lw=0.8, ls=":", alpha=0.8)
            ax.axvline(b, color=colour, lw=0.8, ls=":", alpha=0.8)
    if legend and spans:
        ax.legend(loc="upper right", fontsize=8, framealpha=0.85, title=spans.title, title_fontsize=8)


def image(ax, values, times, top_khz, vmin, vmax, cmap="magma"):
    """`values` (bins, columns) over the times (first, last) in seconds."""
    return ax.imshow(values, origin="lower", aspect="auto", cmap=cmap, vmin=vmin, vmax=vmax,
                     extent=(*times, 0, top_khz), interpolation="nearest")


def save(plt, fig, path):
    vorl.write_atomically(path, lambda f: fig.savefig(f, format="png"))
    plt.close(fig)


def plot_spectrograms(plt, before, after, spans, times, rate, path, titles):
    top = rate / 2000
    vmax = np.ceil(max(before.max(), after.max()) / 10) * 10
    fig, axes = plt.subplots(2, 1, figsize=(13, 8), sharex=True, sharey=True, constrained_layout=True)
    for ax, values, title in ((axes[0], before, titles[0]), (axes[1], after, titles[1])):
        im = image(ax, values, times, top, vmax - 90, vmax)
        ax.set_title(title)
        ax.set_ylabel("frequency (kHz)")
        mark_drives(ax, spans, legend=ax is axes[0])
    axes[1].set_xlabel("time (s)")
    fig.colorbar(im, ax=axes, label="power (dB re full scale)", shrink=0.9)
    save(plt, fig, path)


def block_level_db(audio, blocks, minus=None):
    """Level per block in dBFS (of audio − minus, clipped to 16 bits, when
    given), a stretch of blocks at a time so a long recording costs no
    copies of itself."""
    power = np.empty(blocks)
    step = 4096
    for first in range(0, blocks, step):
        span = slice(first * vorl.BLOCK_FRAMES, (first + step) * vorl.BLOCK_FRAMES)
        part = audio[span].astype(np.int32)
        if minus is not None:
            part = (part - minus[span]).clip(-32768, 32767)
        n = min(step, blocks - first)
        x = np.zeros((n * vorl.BLOCK_FRAMES, 2))
        x[:len(part)] = part / 32768.0
        power[first:first + n] = (x.reshape(n, vorl.BLOCK_FRAMES, 2) ** 2).mean(axis=(1, 2))
    return 10 * np.log10(np.maximum(power, 1e-12))


def plot_removed(plt, noisy, processed, spans, rate, path, start=0.0):
    spec = spectrogram_db(noisy, minus=processed)
    blocks = -(-len(noisy) // vorl.BLOCK_FRAMES)
    t = start + np.arange(blocks) * vorl.BLOCK_FRAMES / rate
    fig, axes = plt.subplots(2, 1, figsize=(13, 8), sharex=True, constrained_layout=True,
                             gridspec_kw={"height_ratios": [3, 2]})
    vmax = np.ceil(spec.max() / 10) * 10
    im = image(axes[0], spec, (start, start + len(noisy) / rate), rate / 2000, max(vmax - 80, FLOOR_DB),
               vmax)  # black: nothing removed
    axes[0].set_title("removed noise (input − output)")
    axes[0].set_ylabel("frequency (kHz)")
    mark_drives(axes[0], spans)
    fig.colorbar(im, ax=axes[0], label="power (dB re full scale)")
    for level, name, style in ((block_level_db(noisy, blocks), "input", "tab:orange"),
                               (block_level_db(processed, blocks), "output (covers the input where\nnothing was removed)", "tab:purple"),
                               (block_level_db(noisy, blocks, minus=processed), "removed", "black")):
        axes[1].plot(t, level, color=style, lw=1, label=name)
    axes[1].set_ylim(-90, 0)
    axes[1].set_ylabel("level per block (dBFS)")
    axes[1].set_xlabel("time (s)")
    axes[1].grid(alpha=0.3)
    mark_drives(axes[1], spans, legend=False)
    axes[1].legend(loc="lower right", fontsize=8)
    fig.colorbar(im, ax=axes[1]).remove()  # keeps the time axes aligned
    save(plt, fig, path)


def plot_gain(plt, gains, drive, spans, rate, path, start=0.0):
    blocks, bins = gains.shape[0], gains.shape[2]
    step = max(1, -(-blocks // MAX_COLUMNS))  # blocks per column
    pooled = gains[: blocks // step * step].reshape(-1, step, 2, bins).mean(axis=(1, 2))
    gain_db = 20 * np.log10(np.maximum(pooled, 1e-5))  # (columns, bins), channels averaged
    block = vorl.BLOCK_FRAMES / rate
    top = bins * rate / 512 / 1000
    fig, axes = plt.subplots(1, 2, figsize=(15, 6), constrained_layout=True,
                             gridspec_kw={"width_ratios": [3, 1.2]})
    # gains[b] belongs to the frame centred on the end of block b.
    im = axes[0].imshow(gain_db.T, origin="lower", aspect="auto", cmap="viridis", vmin=-30, vmax=0,
                        extent=(start + block, start + (blocks + 1) * block, 0, top),
                        interpolation="nearest")
    axes[0].set_title("suppression gain per block and frequency (channels averaged)")
    axes[0].set_xlabel("time (s)")
    axes[0].set_ylabel("frequency (kHz)")
    mark_drives(axes[0], spans)
    axes[0].set_xlim(start + block, start + (blocks + 1) * block)  # the drive bars may start a block earlier
    fig.colorbar(im, ax=axes[0], label="gain (dB)")

    freq = np.arange(bins) * rate / 512 / 1000
    words = np.zeros((blocks, 3), dtype=np.int64)
    rows = min(blocks, len(drive))
    words[:rows] = drive[:rows]
    kinds = [("no drive", "black", (words[:, 0] == 0) & (words[:, 1] == 0))]
    kinds += [(label, colour, (words[:, column] != 0) if value is None else (words[:, column] == value))
              for column, value, label, colour in DRIVES]
    for label, colour, chosen in kinds:
        if chosen.any():
            average = gains.mean(axis=(0, 1), where=chosen[:, None, None], dtype=np.float64)  # no copy of the gains
            mean = 20 * np.log10(np.maximum(average, 1e-5))
            axes[1].plot(freq, mean, color=colour, lw=1.2, label=f"{label} ({chosen.sum()} blocks)")
    axes[1].set_title("average gain by drive")
    axes[1].set_xlabel("frequency (kHz)")
    axes[1].set_ylabel("gain (dB)")
    axes[1].set_ylim(-30, 1)
    axes[1].set_xlim(0, top)
    axes[1].grid(alpha=0.3)
    axes[1].legend(fontsize=8, loc="lower right")
    save(plt, fig, path)


def table_curves(table):
    """The per-bin curves the engine rebuilds from the table's increments
    (bins 0..255): zoom-noise coefficient [channel], background template
    [direction][channel] (clipped at 0), equaliser gain (clipped at 0)."""
    return vorl._vorl.table_curves(table)


def plot_table(plt, table, rate, path, title):
    p = vorl.table_to_dict(table)["st_vorl"]
    coef, background, equaliser = table_curves(table)
    khz = np.arange(256) * rate / 512 / 1000
    ends = np.array(p["zspec_comp_base_bin"])
    coef_max = np.array(p["zspec_comp_coef_f_LR_d_max"], dtype=np.float64)
    fig, axes = plt.subplots(3, 1, figsize=(12, 12), constrained_layout=True)

    ax = axes[0]
    for ch, (name, colour) in enumerate((("left", "tab:blue"), ("right", "tab:orange"))):
        ax.plot(khz, coef[ch], color=colour, lw=1.4, label=name)
        ax.plot(khz[ends], coef[ch][ends], "o", color=colour, ms=3)
        ax.plot(khz[ends], coef_max[ch], color=colour, lw=0.9, ls="--", label=f"{name}: upper bound")
    if p["zspec_comp_max_freq"] < 255:
        edge = khz[p["zspec_comp_max_freq"]]
        ax.axvline(edge, color="gray", ls=":", lw=1)
        ax.annotate(f"above {edge:.1f} kHz: fixed {p['zspec_comp_replace_value']:g}", (edge, 0.5),
                    xycoords=("data", "axes fraction"), xytext=(4, 0), textcoords="offset points", fontsize=8)
    ax.set_title("zoom-noise coefficient per bin (dots: band ends, where learning sets it; "
                 "dashed: the bound the plausibility check allows)")
    ax.set_ylabel("coefficient")
    if np.all(coef > 0) and np.all(coef_max > 0):
        from matplotlib import ticker
        ax.set_yscale("log")
        ax.yaxis.set_major_locator(ticker.LogLocator(subs=(1.0, 2.0, 5.0)))
        ax.yaxis.set_major_formatter(ticker.FormatStrFormatter("%g"))
        ax.yaxis.set_minor_formatter(ticker.NullFormatter())
    ax.legend(fontsize=8, ncol=2, loc="lower right")

    ax = axes[1]
    names = (("AF (idle / autofocus)", "tab:green"), ("WT (zoom in)", "tab:red"), ("TW (zoom out)", "tab:blue"))
    empty = []
    for d, (direction, colour) in enumerate(names):
        if not np.any(background[d] > 0):
            empty.append(direction.split()[0])
            continue
        same = [names[e][0].split()[0] for e in range(d) if np.array_equal(background[e], background[d])]
        if same:  # the curve lies under an earlier one: say so in its label
            direction += " = " + ", ".join(same)
        for ch, style in ((0, "-"), (1, "--")):
            ax.plot(khz, 10 * np.log10(np.maximum(background[d, ch], 1e-12)), color=colour, ls=style,
                    lw=(3.0 if d == 1 else 1.6) if ch == 0 else 1.0, label=f"{direction}, {'left' if ch == 0 else 'right'}")
    ax.set_title("background-noise template per direction" + (f" (empty: {', '.join(empty)})" if empty else ""))
    ax.set_ylabel("noise power (dB, engine scale)")
    if len(empty) < len(names):
        ax.legend(fontsize=8, ncol=2, loc="upper right")

    ax = axes[2]
    ax.plot(khz, 20 * np.log10(np.maximum(equaliser, 1e-5)), color="black", lw=1.4)
    ax.set_title("equaliser")
    ax.set_ylabel("gain (dB)")
    low, high = ax.get_ylim()
    ax.set_ylim(min(low, -3), max(high, 3))
    for ax in axes:
        ax.set_xlabel("frequency (kHz)")
        ax.set_xlim(0, rate / 2000)
        ax.grid(alpha=0.3, which="both")
    fig.suptitle(title)
    save(plt, fig, path)


def make_report(noisy_path, out_dir, processed_path=None, drive_path=None, table_path=None, no_resample=False,
                ranges=None, section=None):
    """Writes the four pictures; returns their paths. `ranges`: the drive
    as the tool's range options, {"zoom-in": "1.5-3.2,8-9", "af": ...}.
    `section`: (start, end) in seconds, the part of the recording drawn
    (in whole blocks), after processing all of it as vorl process does."""
    paths = {name: os.path.join(out_dir, name + ".png") for name in ("spectrograms", "removed", "gain", "table")}
    for picture in paths.values():
        for given in (noisy_path, processed_path, drive_path, table_path):
            if given and os.path.exists(picture) and os.path.exists(given) and os.path.samefile(picture, given):
                raise vorl.Error(f"{picture}: is an input of the report ({given}); choose another folder")
    plt = _pyplot()
    noisy, rate = vorl.read_audio(noisy_path)
    if len(noisy) == 0:
        raise vorl.Error(f"{noisy_path}: holds no audio samples")
    table = vorl.read_table(table_path) if table_path else None
    blocks = -(-len(noisy) // vorl.BLOCK_FRAMES)
    # A drive file counts the blocks vorl process runs the engine on: at
    # 48 kHz for a recording it resamples. Ranges are times. Without
    # either the drives are detected, as vorl process does.
    engine_rate = rate if no_resample else RATE_TUNED
    problems = []
    if drive_path:
        drive, problems = _vorl.drive_for_recording(vorl.read_drive(drive_path), str(drive_path), len(noisy), rate,
                                                    str(noisy_path), engine_rate)
    elif ranges:
        drive, problems = _vorl.drive_from_range_options(ranges, len(noisy), rate, str(noisy_path))
    else:
        drive = vorl.detect(noisy, table)
    for problem in problems:
        print(f"vorl: warning: {problem}", file=sys.stderr)
    if rate != engine_rate:
        what = "the gains are drawn from a run" if processed_path else "processed here"
        print(f"vorl: warning: {noisy_path}: {rate} Hz; {what} at that rate with a table tuned for {RATE_TUNED} Hz, "
              f"to which vorl process resamples it{'' if processed_path else ' (--processed draws its output)'}",
              file=sys.stderr)
    # A table that breaks a rule is drawn as the library runs it, with a
    # warning: the report is where one looks at what such a table does.
    if table and any(where == "check_sum" for where, _ in vorl.check_table(table)):
        raise vorl.Error(f"{table_path}: checksum wrong, the tuning table is damaged (vorl table check shows more)")
    broken = _vorl.rule_summary(table) if table else ""
    if broken:
        print(f"vorl: warning: {table_path}: {broken} (see: vorl table check {table_path}); drawn as the library "
              f"runs it", file=sys.stderr)
    own, gains = vorl.process(noisy, drive, table, gains=True, force=True)
    if processed_path:
        processed, processed_rate = vorl.read_audio(processed_path)
        late = _vorl.misalignment(noisy, processed, rate, str(processed_path), str(noisy_path))
        if late:
            raise vorl.Error(f"{late}: the report needs the time-aligned output (a host that does not make up for "
                             f"the plugin's latency, or vorl process --raw, delays it so); leave out --processed "
                             f"to process the input here")
        fault = _vorl.channel_fault(noisy, processed, str(processed_path), str(noisy_path))
        if fault:
            raise vorl.Error(f"{fault}: the report compares the recordings channel by channel")
        if processed_rate != rate or len(processed) != len(noisy):
            raise vorl.Error(f"{processed_path}: {len(processed)} frames at {processed_rate} Hz, the input has "
                             f"{len(noisy)} at {rate} Hz; give the time-aligned output of vorl process")
    else:
        processed = own
    words = np.zeros((blocks, 3), dtype=np.int64)
    rows = min(blocks, len(drive))
    words[:rows] = drive[:rows]
    start = 0.0
    if section:
        first, end = section_blocks(section, len(noisy), rate, str(noisy_path))
        frames = slice(first * vorl.BLOCK_FRAMES, end * vorl.BLOCK_FRAMES)
        noisy, processed, gains, words = noisy[frames], processed[frames], gains[first:end], words[first:end]
        start = first * vorl.BLOCK_FRAMES / rate
    spans = drive_spans(words, rate, "drive" if drive_path or ranges else "drive (detected)", start)

    os.makedirs(out_dir, exist_ok=True)
    table_name = f"table {os.path.basename(table_path)}" if table_path else "built-in table"
    noisy_name = os.path.basename(str(noisy_path))
    after_title = (f"output: {os.path.basename(str(processed_path))}" if processed_path
                   else f"output: {noisy_name} processed here with the {table_name}")
    plot_spectrograms(plt, spectrogram_db(noisy), spectrogram_db(processed), spans,
                      (start, start + len(noisy) / rate), rate, paths["spectrograms"],
                      (f"input: {noisy_name}", after_title))
    plot_removed(plt, noisy, processed, spans, rate, paths["removed"], start)
    plot_gain(plt, gains, words, spans, rate, paths["gain"], start)
    plot_table(plt, table or vorl.default_table(), RATE_TUNED, paths["table"],
               f"tuning table: {os.path.basename(table_path) if table_path else 'built-in'}")
    return paths


def section_blocks(section, frames, rate, name):
    """The blocks [first, end) that hold the times `section` of a recording
    of `frames` frames; one reaching past the end is cut there, with a
    warning, one wholly past it is refused."""
    seconds = frames / rate
    if section[0] >= seconds:
        raise vorl.Error(f"--section {section[0]:g}-{section[1]:g} lies past the end of {name} ({seconds:.2f} s)")
    if section[1] > seconds:
        print(f"vorl: warning: --section {section[0]:g}-{section[1]:g} reaches past the end of {name} "
              f"({seconds:.2f} s)", file=sys.stderr)
    first = int(section[0] * rate) // vorl.BLOCK_FRAMES
    end = -(-min(frames, int(np.ceil(section[1] * rate))) // vorl.BLOCK_FRAMES)
    return first, max(end, first + 1)


class _Parser(argparse.ArgumentParser):
    def error(self, message):  # the tool's exit status for usage errors
        self.print_usage(sys.stderr)
        self.exit(1, f"vorl report: {message}\n")


def main(argv=None):
    parser = _Parser(prog="vorl report", description=__doc__.split("\n\n")[0],
                                     formatter_class=argparse.RawDescriptionHelpFormatter,
                                     epilog=__doc__.split("\n\n", 2)[2])
    parser.add_argument("input", metavar="IN", help="the recording (stereo; any format libsndfile reads)")
    parser.add_argument("dir", metavar="DIR", help="folder for the PNG files (created if missing)")
    parser.add_argument("--processed", metavar="OUT",
                        help="the time-aligned output of vorl process (default: processed here)")
    parser.add_argument("--drive", metavar="FILE",
                        help="drive file, one \"zoom af wind\" line per block (default: detected, as vorl process does)")
    for option, what in (("zoom-in", "zoom-in drive, as for vorl process: e.g. 1.5-3.2,8-9.25 or 1:02.5-1:04"),
                         ("zoom-out", "zoom-out drive"), ("af", "autofocus drive"), ("wind", "wind present")):
        parser.add_argument(f"--{option}", metavar="RANGES", action="append", help=what)
    parser.add_argument("--table", metavar="T", help="tuning table (default: the built-in table)")
    parser.add_argument("--section", metavar="RANGE",
                        help="draw only this part, e.g. 30:00-30:20 (the whole recording is processed, as vorl "
                             "process does, so the gains and learning are those of the full run)")
    parser.add_argument("--no-resample", action="store_true",
                        help="for IN at another rate than 48000 Hz: as vorl process --no-resample (the drive file "
                             "counts IN's own blocks); by default the drive file counts the 48 kHz blocks vorl "
                             "process resamples IN to, and the report says that it runs at IN's rate")
    args = parser.parse_args(argv)
    args.ranges = {option: ",".join(values) for option in ("zoom-in", "zoom-out", "af", "wind")
                   if (values := getattr(args, option.replace("-", "_")))}
    if args.ranges and args.drive:
        parser.error("--drive cannot be combined with --zoom-in/--zoom-out/--af/--wind")
    try:  # malformed or overlapping ranges are usage errors, as in vorl process
        _vorl.drive_from_range_options(args.ranges, 0, RATE_TUNED, "")
        args.section = _vorl.parse_ranges(args.section, "section") if args.section else None
    except vorl.Error as e:
        parser.error(str(e))
    if args.section and len(args.section) > 1:
        parser.error("--section takes one range START-END")
    args.section = args.section[0] if args.section else None
    with warnings.catch_warnings():
        shown = warnings.showwarning

        def show(message, category, *rest):
            # The input's faults in the tool's words.
            if issubclass(category, vorl.InputWarning):
                print(f"vorl: warning: {message}", file=sys.stderr)
            else:
                shown(message, category, *rest)
        warnings.showwarning = show
        return _run(args)


def _run(args):
    try:
        paths = make_report(args.input, args.dir, args.processed, args.drive, args.table, args.no_resample,
                            args.ranges, args.section)
    except (vorl.Error, OSError) as e:
        print(f"vorl: {e}", file=sys.stderr)
        return 2
    for path in paths.values():
        print(path)
    return 0


if __name__ == "__main__":
    raise SystemExit(main())
