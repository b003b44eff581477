import shutil
import subprocess
import wave

import numpy as np
import pytest

import vorl
from conftest import run_tool


def png_size(path):
    data = path.read_bytes()
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    return int.from_bytes(data[16:20], "big"), int.from_bytes(data[20:24], "big")


def write_wav(path, samples, rate=48000):
    """16-bit stereo from an int16 array of shape (frames, 2)."""
    with wave.open(str(path), "wb") as w:
        w.setnchannels(2)
        w.setsampwidth(2)
        w.setframerate(rate)
        w.writeframes(np.ascontiguousarray(samples, dtype="<i2").tobytes())


def refused(*args):
    """The report's complaint, with exit status 2."""
    with pytest.raises(subprocess.CalledProcessError) as failed:
        run_tool("report", *args)
    assert failed.value.returncode == 2
    return failed.value.stderr


def test_vorl_report_draws_every_picture(demo, tmp_path):
    run_tool("process", demo / "noisy.wav", tmp_path / "out.wav", "--drive", demo / "drive.txt", "-q")
    run_tool("report", demo / "noisy.wav", "--processed", tmp_path / "out.wav", "--drive", demo / "drive.txt",
             tmp_path / "report")
    for name in ("spectrograms", "removed", "gain", "table"):
        width, height = png_size(tmp_path / "report" / f"{name}.png")
        assert width >= 1000 and height >= 500


def test_a_section_is_drawn_in_whole_blocks_within_the_recording():
    from vorl.report import section_blocks
    assert section_blocks((1.0, 2.0), 480000, 48000, "a.wav") == (187, 375)  # blocks starting 0.997 .. 1.995 s
    assert section_blocks((9.0, 12.0), 480000, 48000, "a.wav") == (1687, 1875)  # cut at the end
    assert section_blocks((0.0, 0.001), 480000, 48000, "a.wav") == (0, 1)
    with pytest.raises(vorl.Error, match=r"--section 10-11 lies past the end of a.wav \(10.00 s\)"):
        section_blocks((10.0, 11.0), 480000, 48000, "a.wav")


def test_report_curves_follow_the_running_sums():
    from vorl.report import table_curves
    fields = vorl.table_to_dict(vorl.default_table())
    p = fields["st_vorl"]
    p["eq_gain"] = [2.0] + [0.01] * 64                  # 2 at bin 0, rising 0.01 per bin
    coef, background, equaliser = table_curves(vorl.table_from_dict(fields))
    assert equaliser[0] == 2.0 and equaliser[255] == pytest.approx(2.0 + 2.55, rel=1e-5)  # single precision, as the engine
    ends = np.array(p["zspec_comp_base_bin"])
    # Node values as the plausibility check forms them: the first, then increments times band widths.
    widths = np.diff(ends, prepend=ends[0])
    widths[0] = 1
    node = np.cumsum(np.array(p["zspec_comp_coef_f_LR_d"])[0] * widths)
    assert coef[0][ends[:40]] == pytest.approx(node[:40], rel=1e-5)   # below the fixed-value edge
    # Templates: group 0 at bin 0, then each group's increment added at each of its four bins.
    row = np.array(p["back_ground_noise"][0][0])
    level = np.cumsum(np.concatenate(([row[0]], 4 * row[1:])))
    assert background.shape == (3, 2, 256) and background[0][0][4 * np.arange(64)] == pytest.approx(level[:64], rel=1e-4)


def test_report_refuses_mismatched_output_in_words(demo, tmp_path):
    noisy, _ = vorl.read_audio(demo / "noisy.wav")
    write_wav(tmp_path / "short.wav", np.zeros((1000, 2)))
    assert "short.wav: 1000 frames" in refused(demo / "noisy.wav", "--processed", tmp_path / "short.wav", tmp_path / "r")
    write_wav(tmp_path / "empty.wav", np.zeros((0, 2)))
    assert "empty.wav: holds no audio samples" in refused(tmp_path / "empty.wav", tmp_path / "r")
    # Output as long as the input but late, as --raw (or a host ignoring the latency) writes it.
    run_tool("process", demo / "noisy.wav", tmp_path / "raw.wav", "--drive", demo / "drive.txt", "--raw", "-q")
    assert "raw.wav runs 768 frames (16.0 ms) late" in refused(demo / "noisy.wav", "--processed", tmp_path / "raw.wav",
                                                              tmp_path / "r")
    # Channels swapped, as a mixer's wrong patch leaves them.
    write_wav(tmp_path / "swapped.wav", noisy[:, ::-1])
    assert "swapped.wav has its left and right channels swapped" in refused(
        demo / "noisy.wav", "--processed", tmp_path / "swapped.wav", tmp_path / "r")
    # A folder where a picture's name is one of the inputs.
    (tmp_path / "r").mkdir()
    shutil.copy(demo / "drive.txt", tmp_path / "r" / "gain.png")
    assert "gain.png: is an input of the report" in refused(demo / "noisy.wav", "--drive", tmp_path / "r" / "gain.png",
                                                            tmp_path / "r")
    assert (tmp_path / "r" / "gain.png").read_bytes() == (demo / "drive.txt").read_bytes()


def test_report_draws_a_table_that_breaks_a_rule_and_refuses_a_damaged_one(tmp_path):
    write_wav(tmp_path / "quiet.wav", np.zeros((48000, 2)))
    fields = vorl.table_to_dict(vorl.default_table())
    fields["st_vorl"]["nr_proc_min_freq_bin"], fields["st_vorl"]["nr_proc_max_freq_bin"] = 200, 10
    vorl.write_table(tmp_path / "broken.tbl", vorl.table_from_dict(fields))
    drawn = run_tool("report", tmp_path / "quiet.wav", "--table", tmp_path / "broken.tbl", tmp_path / "r")
    assert "broken.tbl: breaks 1 table rule, first nr_proc_min_freq_bin" in drawn.stderr
    assert (tmp_path / "r" / "gain.png").exists()

    damaged = bytearray(vorl.default_table())
    damaged[300] ^= 0xFF
    (tmp_path / "damaged.tbl").write_bytes(bytes(damaged))
    assert "damaged.tbl: checksum wrong" in refused(tmp_path / "quiet.wav", "--table", tmp_path / "damaged.tbl",
                                                   tmp_path / "d")


def test_report_reads_a_cameras_video_and_says_when_the_drive_file_is_short(demo, tmp_path):
    ffmpeg = shutil.which("ffmpeg")
    if ffmpeg is None:
        pytest.skip("needs the ffmpeg program")
    video = tmp_path / "take.mp4"
    subprocess.run([ffmpeg, "-v", "error", "-f", "lavfi", "-i", "testsrc=size=160x120:rate=25", "-i",
                    str(demo / "noisy.wav"), "-shortest", "-c:v", "libx264", "-pix_fmt", "yuv420p", "-c:a", "aac",
                    str(video)], check=True)
    sound, rate = vorl.read_audio(video)
    wav, _ = vorl.read_audio(demo / "noisy.wav")
    assert rate == 48000 and abs(len(sound) - len(wav)) <= 2048
    n = min(len(sound), len(wav))
    assert np.corrcoef(sound[:n, 0], wav[:n, 0])[0, 1] > 0.99  # in time, not shifted by the codec's delay
    lines = (demo / "drive.txt").read_text().splitlines(keepends=True)
    (tmp_path / "short.txt").write_text("".join(lines[:-10]))
    done = run_tool("report", video, "--drive", tmp_path / "short.txt", tmp_path / "report")
    assert "the blocks past the file's end are idle" in done.stderr
    assert png_size(tmp_path / "report" / "gain.png")[0] >= 1000


def test_report_at_another_rate_reads_the_drive_file_as_process_does(demo, tmp_path):
    from vorl import _vorl
    drive = np.zeros((200, 3), dtype=np.int64)
    drive[100:150, 0] = 1  # 48 kHz blocks 100..149: 0.533 s to 0.800 s
    words, problems = _vorl.drive_for_recording(drive, "d.txt", 200 * 256, 44100, "a.wav", 48000)
    assert words.shape == (200, 3)
    assert list(np.flatnonzero(words[:, 0])) == list(range(92, 138))  # 44.1 kHz blocks starting in that time
    assert not words[184:].any()  # past the file's end
    assert problems == ["d.txt: 200 block lines, but a.wav has 218 blocks of 256 frames at 48000 Hz (1.16 s); "
                        "the blocks past the file's end are idle"]
    noisy, _ = vorl.read_audio(demo / "noisy.wav")
    write_wav(tmp_path / "noisy44.wav", noisy[:44100 * 3], rate=44100)
    lines = (demo / "drive.txt").read_text().splitlines(keepends=True)
    (tmp_path / "drive.txt").write_text("".join(lines[:1 + 563]))  # 3 s of 48 kHz blocks
    done = run_tool("report", tmp_path / "noisy44.wav", "--drive", tmp_path / "drive.txt", tmp_path / "report")
    assert "block lines" not in done.stderr
    assert "noisy44.wav: 44100 Hz; processed here at that rate with a table tuned for 48000 Hz" in done.stderr
    (tmp_path / "short.txt").write_text("".join(lines[:1 + 517]))  # as many lines as 44.1 kHz blocks
    done = run_tool("report", tmp_path / "noisy44.wav", "--drive", tmp_path / "short.txt", tmp_path / "report")
    assert "short.txt: 517 block lines, but " in done.stderr
    assert "has 563 blocks of 256 frames at 48000 Hz" in done.stderr
    done = run_tool("report", tmp_path / "noisy44.wav", "--drive", tmp_path / "short.txt", "--no-resample",
                    tmp_path / "report")
    assert "block lines" not in done.stderr and "44100 Hz;" not in done.stderr


def test_report_takes_drive_ranges_as_process_does_and_draws_a_section(demo, tmp_path):
    noisy, _ = vorl.read_audio(demo / "noisy.wav")
    write_wav(tmp_path / "noisy.wav", noisy[:48000 * 5])
    drive = vorl.drive_from_ranges(48000 * 5, 48000, zoom_in=[(2, 4)], wind=[(0.5, 1.5)])
    (tmp_path / "drive.txt").write_text("".join(f"{z} {a} {w}\n" for z, a, w in drive))
    run_tool("report", tmp_path / "noisy.wav", "--drive", tmp_path / "drive.txt", tmp_path / "from-file")
    done = run_tool("report", tmp_path / "noisy.wav", "--zoom-in", "0:02-0:04", "--wind", "0.5-1.5",
                    "--zoom-out", "4.5-6", tmp_path / "from-ranges")
    assert "--zoom-out 4.5-6 reaches past the end of" in done.stderr
    assert (tmp_path / "from-file" / "gain.png").read_bytes() != (tmp_path / "from-ranges" / "gain.png").read_bytes()
    run_tool("report", tmp_path / "noisy.wav", "--zoom-in", "0:02-0:04", "--wind", "0.5-1.5", tmp_path / "from-ranges")
    for name in ("spectrograms", "removed", "gain"):
        assert (tmp_path / "from-file" / f"{name}.png").read_bytes() == \
            (tmp_path / "from-ranges" / f"{name}.png").read_bytes(), name
    done = run_tool("report", tmp_path / "noisy.wav", "--zoom-in", "2-4", "--section", "0:01.5-6", tmp_path / "part")
    assert "--section 1.5-6 reaches past the end of" in done.stderr
    assert "lies past the end" in refused(tmp_path / "noisy.wav", "--section", "5-6", tmp_path / "part")
    for bad in (["--zoom-in", "2-4", "--drive", tmp_path / "drive.txt"], ["--zoom-in", "2-4", "--zoom-out", "3-5"],
                ["--af", "1:60-2"], ["--section", "1-2,3-4"]):
        with pytest.raises(subprocess.CalledProcessError) as failed:
            run_tool("report", tmp_path / "noisy.wav", *bad, tmp_path / "bad")
        assert failed.value.returncode == 1 and "usage: vorl report" in failed.value.stderr
