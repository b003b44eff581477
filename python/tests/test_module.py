import json

import numpy as np
import pytest

import vorl
from conftest import run_tool


def test_process_is_the_tools_output(demo, tmp_path):
    audio, rate = vorl.read_audio(demo / "noisy.wav")
    assert audio.dtype == np.int16 and audio.shape[1] == 2 and rate == 48000
    drive = vorl.read_drive(demo / "drive.txt")

    run_tool("process", demo / "noisy.wav", tmp_path / "tool.wav", "--drive", demo / "drive.txt", "--pulse",
             "--strength", "0.6", "--no-prime", "-q")
    out = vorl.process(audio, drive, pulse=True, strength=0.6, prime=False)
    assert np.array_equal(out, vorl.read_audio(tmp_path / "tool.wav")[0])

    # No drive state: the tool detects the drives, and so does vorl.detect.
    run_tool("process", demo / "noisy.wav", tmp_path / "detected.wav", "--drive-out", tmp_path / "found.txt", "-q")
    found = vorl.detect(audio)
    assert np.array_equal(found, vorl.read_drive(tmp_path / "found.txt"))
    assert found[:, 0].any()
    assert np.array_equal(vorl.process(audio, found), vorl.read_audio(tmp_path / "detected.wav")[0])

    # Ranges in seconds, a table file and the DC cut, as the tool takes them.
    run_tool("table", "new", tmp_path / "t.tbl")
    run_tool("process", demo / "noisy.wav", tmp_path / "ranges.wav", "--zoom-in", "2-4", "--zoom-out", "6-7.6",
             "--wind", "10-15.5", "--table", tmp_path / "t.tbl", "--dc-cut", "--no-prime", "-q")
    words = vorl.drive_from_ranges(len(audio) + vorl.DELAY_FRAMES, rate, zoom_in=[(2, 4)], zoom_out=[(6, 7.6)],
                                   wind=[(10, 15.5)])
    out, gains = vorl.process(audio, words, vorl.read_table(tmp_path / "t.tbl"), dc_cut=True, gains=True,
                        prime=False)
    assert np.array_equal(out, vorl.read_audio(tmp_path / "ranges.wav")[0])
    assert gains.shape == (-(-len(audio) // 256), 2, 256)
    # The gain is a suppression gain: at most 1, and lower while the zoom runs.
    assert gains.max() <= 1.0 and gains.min() >= 0.0
    during, idle = gains[2 * 48000 // 256 + 20], gains[1 * 48000 // 256]
    assert during[:, 10:100].mean() < idle[:, 10:100].mean()


def test_measure_is_the_tools_figures(demo, tmp_path):
    clean, rate = vorl.read_audio(demo / "clean.wav")
    noisy, _ = vorl.read_audio(demo / "noisy.wav")
    drive = vorl.read_drive(demo / "drive.txt")
    processed = vorl.process(noisy, drive)
    run_tool("process", demo / "noisy.wav", tmp_path / "out.wav", "--drive", demo / "drive.txt", "-q")
    tool = json.loads(run_tool("measure", demo / "clean.wav", demo / "noisy.wav", tmp_path / "out.wav", "--drive",
                               demo / "drive.txt", "--ceiling", "--json").stdout)
    assert vorl.measure(clean, noisy, processed, drive, rate, ceiling=True) == tool
    assert tool["during_drives"]["noise_attenuation_db"] > 10
    assert vorl.measure(clean, noisy, clean, drive)["during_drives"]["noise_attenuation_db"] is None  # all removed
    late = np.concatenate([np.zeros((768, 2), np.int16), processed[:-768]])
    with pytest.raises(vorl.Error, match="processed runs 768 frames .* late against noisy"):
        vorl.measure(clean, noisy, late, drive)
    with pytest.raises(ValueError, match="one length"):
        vorl.measure(clean[:1000], noisy, processed, drive)


def test_input_faults_are_warned_of(demo, tmp_path, recwarn):
    audio, _ = vorl.read_audio(demo / "noisy.wav")
    drive = vorl.read_drive(demo / "drive.txt")
    vorl.process(audio, drive)
    assert not [w for w in recwarn if issubclass(w.category, vorl.InputWarning)]
    inverted = audio.copy()
    inverted[:, 1] = np.clip(-audio[:, 1].astype(np.int32), -32768, 32767)
    with pytest.warns(vorl.InputWarning, match="opposite polarity"):
        vorl.process(inverted, drive)
    with pytest.warns(vorl.InputWarning, match="channels are identical during the zoom drives"):
        vorl.process(np.repeat(audio[:, :1], 2, axis=1), drive)

    # A float recording with NaN samples (read as 0) and one beyond full scale.
    samples = np.full((1000, 2), 0.25, dtype="<f4")
    samples[[10, 500], 0] = np.nan
    samples[700, 1] = 2.0
    data = samples.tobytes()
    header = (b"RIFF" + (36 + len(data)).to_bytes(4, "little") + b"WAVEfmt " +
              np.array([16, 3 | 2 << 16, 48000, 48000 * 8, 8 | 32 << 16], "<u4").tobytes() +
              b"data" + len(data).to_bytes(4, "little"))
    (tmp_path / "holes.wav").write_bytes(header + data)
    with pytest.warns(vorl.InputWarning) as found:
        holes, _ = vorl.read_audio(tmp_path / "holes.wav")
    assert sorted(str(w.message).split(": ", 1)[1] for w in found) == [
        "1 sample(s) clipped converting to 16-bit", "2 sample(s) not a number (NaN), read as silence"]
    assert holes[10, 0] == 0 and holes[700, 1] == 32767 and holes[11, 0] == 8192


def test_tables_convert_and_check(tmp_path):
    table = vorl.default_table()
    assert len(table) == vorl.TABLE_BYTES and vorl.check_table(table) == []
    fields = vorl.table_to_dict(table)
    assert vorl.table_from_dict(fields) == table

    run_tool("table", "new", tmp_path / "t.tbl")
    assert vorl.read_table(tmp_path / "t.tbl") == table
    assert json.loads(run_tool("table", "to-json", tmp_path / "t.tbl").stdout) == fields

    fields["st_vorl"]["over_est"] = 2.5
    edited = vorl.table_from_dict(fields)
    vorl.write_table(tmp_path / "edited.tbl", edited)
    assert vorl.table_to_dict(vorl.read_table(tmp_path / "edited.tbl"))["st_vorl"]["over_est"] == 2.5
    # Replacing writes through a link, keeps the file's mode, and leaves no temporary file.
    (tmp_path / "link.tbl").symlink_to("edited.tbl")
    (tmp_path / "edited.tbl").chmod(0o640)
    vorl.write_table(tmp_path / "link.tbl", table)
    assert (tmp_path / "link.tbl").is_symlink() and vorl.read_table(tmp_path / "edited.tbl") == table
    assert (tmp_path / "edited.tbl").stat().st_mode & 0o777 == 0o640
    # A write that fails part way leaves the old file as it was.
    with pytest.raises(ZeroDivisionError):
        vorl.write_atomically(tmp_path / "edited.tbl", lambda f: (f.write(b"partial"), 1 / 0))
    assert vorl.read_table(tmp_path / "edited.tbl") == table
    assert sorted(p.name for p in tmp_path.iterdir()) == ["edited.tbl", "link.tbl", "t.tbl"]

    damaged = bytearray(edited)
    damaged[100] ^= 1
    assert [w for w, _ in vorl.check_table(bytes(damaged))] == ["check_sum"]
    # Sealed again, the checksum passes; the changed byte may break a rule.
    assert "check_sum" not in [w for w, _ in vorl.check_table(vorl.seal_table(bytes(damaged)))]


def test_bad_input_is_refused_with_words(tmp_path):
    audio = np.zeros((1000, 2), np.int16)
    with pytest.raises(ValueError, match=r"shape \(1000, 3\), not \(frames, 2\)"):
        vorl.process(np.zeros((1000, 3), np.int16))
    with pytest.raises(ValueError, match=r"shape \(2, 1000\).*pass audio.T"):
        vorl.detect(audio.T)
    with pytest.raises(ValueError, match=r"int16, not float32 \(from floats in \[-1, 1\]: np.clip"):
        vorl.process(audio.astype(np.float32))
    ramp = np.arange(-4000, 4000, dtype=np.int16).repeat(2).reshape(-1, 2)
    assert (vorl.process(ramp.astype(">i2")) == vorl.process(ramp)).all()  # int16 in either byte order
    with pytest.raises(TypeError, match=r"got str \(read_table\(path\) reads a table file\)"):
        vorl.process(audio, table="camera.tbl")
    assert vorl.check_table(bytearray(vorl.default_table())) == []  # any bytes-like table
    with pytest.raises(ValueError, match="drive block 1"):
        vorl.process(audio, [[0, 0, 0], [3, 0, 0]])
    with pytest.raises(ValueError, match="drive block 1 holds 1.5, not a whole number"):
        vorl.process(audio, np.array([[0, 0, 0], [1.5, 0, 0]]))
    with pytest.warns(vorl.InputWarning, match="drive has 2 rows, but the audio has 4 blocks"):
        vorl.process(audio, np.array([[0.0, 0, 0], [1, 0, 0]]))  # whole floats, as np.loadtxt reads a drive file
    with pytest.warns(vorl.InputWarning, match="drive has 8 rows, .* the rows past the audio's end are unused"):
        vorl.process(audio, np.zeros((8, 3), int))
    with pytest.raises(ValueError, match="4184 bytes"):
        vorl.process(audio, table=b"short")
    damaged = bytearray(vorl.default_table())
    damaged[8] ^= 1
    with pytest.raises(vorl.Error, match="checksum"):
        vorl.process(audio, table=bytes(damaged))
    fields = vorl.table_to_dict(vorl.default_table())
    fields["st_vorl"]["nr_proc_min_freq_bin"] = 200  # an empty processing range
    fields["st_vorl"]["nr_proc_max_freq_bin"] = 10
    broken = vorl.table_from_dict(fields)
    with pytest.raises(vorl.Error, match="nr_proc_min_freq_bin.*force=True"):
        vorl.process(audio, table=broken)
    assert vorl.process(audio, table=broken, force=True).shape == audio.shape
    (tmp_path / "short.tbl").write_bytes(b"x" * 10)
    with pytest.raises(vorl.Error, match="short.tbl: not a tuning table"):
        vorl.read_table(tmp_path / "short.tbl")
    (tmp_path / "long.tbl").write_bytes(b"x" * 5000)
    with pytest.raises(vorl.Error, match=r"long.tbl: not a tuning table \(5000 bytes"):
        vorl.read_table(tmp_path / "long.tbl")
    (tmp_path / "t.json").write_text(vorl.table_to_json(vorl.default_table()))
    with pytest.raises(vorl.Error, match="t.json: a table's JSON, not a table file"):
        vorl.read_table(tmp_path / "t.json")
    (tmp_path / "drive.txt").write_text("1 0 0\n1 0\n")
    with pytest.raises(vorl.Error, match="drive.txt:2"):
        vorl.read_drive(tmp_path / "drive.txt")
    with pytest.raises(vorl.Error, match="missing.wav"):
        vorl.read_audio(tmp_path / "missing.wav")
    with pytest.raises(vorl.Error, match="missing field"):
        vorl.table_from_json("{}")


def test_fit_is_the_tools_table(demo, tmp_path):
    audio, rate = vorl.read_audio(demo / "calibration.wav")
    drive = vorl.read_drive(demo / "calibration-drive.txt")
    table, report = vorl.fit(audio, drive, quick=True)
    run_tool("table", "fit", demo / "calibration.wav", "--drive", demo / "calibration-drive.txt", "-o",
             tmp_path / "fit.tbl", "--quick", "-q")
    assert table == vorl.read_table(tmp_path / "fit.tbl") and vorl.check_table(table) == []
    assert "coef L" in report
    with pytest.raises(vorl.Error, match="no zoom drive"):
        vorl.fit(audio, np.zeros_like(drive), quick=True)
    damaged = bytearray(table)
    damaged[300] ^= 0xFF
    with pytest.raises(vorl.Error, match="base table is damaged"):
        vorl.fit(audio, drive, base=bytes(damaged), quick=True)
