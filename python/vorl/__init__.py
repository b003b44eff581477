"""libvorl for Python: removes lens-drive noise from stereo 16-bit audio held
in numpy arrays, exactly as the ``vorl`` tool does, and reads, checks and
converts tuning tables.

    import vorl
    audio, rate = vorl.read_audio("take.wav")          # int16, shape (n, 2)
    drive = vorl.read_drive("drive.txt")               # shape (blocks, 3)
    clean = vorl.process(audio, drive)                 # the tool's output
    clean, gains = vorl.process(audio, drive, gains=True)
    table = vorl.table_to_dict(vorl.read_table("my.tbl"))

A block is 256 frames; drive row b ("zoom af wind") describes input block b
(frames 256b .. 256b+255), as a line of a drive file does for the tool.
"""
import json
import os
import secrets
import warnings

import numpy as np

from ._vorl import (BLOCK_FRAMES, DELAY_FRAMES, TABLE_BYTES, Error, check_table, default_table, seal_table,
                    table_from_json, table_to_json)
from . import _vorl

__all__ = ["BLOCK_FRAMES", "DELAY_FRAMES", "TABLE_BYTES", "Error", "InputWarning", "process", "read_audio",
           "read_drive", "drive_from_ranges", "default_table", "read_table", "write_table", "write_atomically",
           "check_table", "seal_table", "table_to_json", "table_from_json", "table_to_dict", "table_from_dict",
           "detect", "fit", "measure"]


class InputWarning(UserWarning):
    """A fault of the recording chain that changes what the noise reducer
    does (a channel in opposite polarity, samples clipped or not numbers),
    as ``vorl process`` warns of it."""


def process(audio, drive=None, table=None, pulse=False, dc_cut=False, strength=1.0, gains=False, prime=True,
            force=False):
    """Runs `audio` (int16, shape (frames, 2)) through the library as
    ``vorl process`` does and returns the time-aligned output, bit for bit
    the tool's. `drive`: drive words per block, shape (blocks, 3), columns
    zoom (0 idle, 1 zoom-in, 2 zoom-out), af, wind; blocks past its end are
    idle (with a warning, as are rows past the audio's end). `table`: table
    bytes (default: the built-in table). `pulse`, `dc_cut` and `strength`
    are the tool's --pulse, --dc-cut and --strength; prime=False is its
    --no-prime. A table that breaks a rule of check_table
    raises Error unless force=True (the tool's --force).

    With gains=True also returns the suppression gain per block, shape
    (blocks, 2, 256) (channel, bin; bin k is k * rate / 512 Hz): gains[b] is
    the gain of the frame made of input blocks b and b+1, centred on frame
    256 * (b + 1).

    Warns (InputWarning) of what the tool warns of in its input."""
    audio = _samples(audio)
    out, gain, problems = _vorl.process(audio, drive, table, pulse, dc_cut, strength, prime, gains, force)
    for problem in _drive_length(drive, len(audio), DELAY_FRAMES) + problems:
        warnings.warn(problem, InputWarning, stacklevel=2)
    return (out, gain) if gains else out


def _drive_length(drive, frames, flush=0):
    """Why `drive` likely belongs to another take: rows for fewer blocks
    than `frames` has, or for more (beyond those of the `flush` frames
    that follow, as the tool's ranges give them)."""
    blocks, rows = -(-frames // BLOCK_FRAMES), 0 if drive is None else len(drive)
    if drive is None or blocks <= rows <= -(-(frames + flush) // BLOCK_FRAMES):
        return []
    rest = "the blocks past its end are idle" if rows < blocks else "the rows past the audio's end are unused"
    return [f"drive has {rows} rows, but the audio has {blocks} blocks of {BLOCK_FRAMES} frames; {rest}"]


def measure(clean, noisy, processed, drive, rate=48000, ceiling=False, table=None):
    """The figures of ``vorl measure --json`` as a dict: for recordings
    (int16, shape (frames, 2), one length, time-aligned as process() gives
    them) of the scene without drive noise, with it, and processed, and the
    drive words per block (as for process), e.g.
    ``measure(...)["during_drives"]["noise_attenuation_db"]``. Groups
    "during_drives", "outside_drives" ("level_change_db",
    "difference_energy_db") and, when wind blows outside drives,
    "during_wind_outside_drives", each with "blocks" and "seconds"; a figure
    that is infinite is None. ceiling=True adds the oracle and the engine's
    reach during drives (at the floor of `table`, default the built-in
    table's). Raises Error for a recording that is not time-aligned with
    `noisy` or holds its channels swapped or inverted."""
    clean, noisy, processed = _samples(clean), _samples(noisy), _samples(processed)
    for other, name in ((clean, "clean"), (processed, "processed")):
        late = _vorl.misalignment(noisy, other, rate, name, "noisy")
        if late:
            raise Error(f"{late}: the recordings must be time-aligned")
        fault = _vorl.channel_fault(noisy, other, name, "noisy")
        if fault:
            raise Error(f"{fault}: the figures compare the recordings channel by channel")
    for problem in _drive_length(drive, len(noisy)):
        warnings.warn(problem, InputWarning, stacklevel=2)
    return json.loads(_vorl.measure(clean, noisy, processed, drive, rate, ceiling, table))


def _samples(audio):
    """`audio` as native int16: the library works on 16-bit samples, and
    rounding other types is the caller's choice, not ours to make quietly."""
    audio = np.asarray(audio)
    if audio.dtype.kind != "i" or audio.dtype.itemsize != 2:
        hint = " (from floats in [-1, 1]: np.clip(np.round(x * 32768), -32768, 32767).astype(np.int16))" \
            if audio.dtype.kind == "f" else ""
        raise Error(f"audio must be int16, not {audio.dtype}{hint}")
    return audio.astype(np.int16, copy=False)  # int16 of either byte order


def read_audio(path):
    """A stereo recording in any format libsndfile reads, or the sound of a
    camera video (MP4/MOV, Matroska), as (int16 array of shape (frames, 2),
    sample rate); wider formats are rounded to 16 bits. Warns
    (InputWarning) of samples clipped on the way or not numbers (NaN, read
    as 0)."""
    audio, rate, problems = _vorl.read_audio(os.fspath(path))
    for problem in problems:
        warnings.warn(problem, InputWarning, stacklevel=2)
    return audio, rate


def read_drive(path):
    """A drive file as an int64 array of shape (blocks, 3), read and checked
    as the tool reads it: one line per block, "zoom af wind" (separated by
    spaces, tabs or commas); empty lines, notes after # and a first line
    naming the columns skipped."""
    return _vorl.read_drive(os.fspath(path))


def drive_from_ranges(frames, rate, zoom_in=(), zoom_out=(), af=(), wind=()):
    """Drive words from time ranges in seconds, as the tool's --zoom-in,
    --zoom-out, --af and --wind options give them: block b is driven when
    start <= 256 * b / rate < end."""
    blocks = -(-frames // BLOCK_FRAMES)
    words = np.zeros((blocks, 3), dtype=np.int64)
    starts = np.arange(blocks) * BLOCK_FRAMES / rate
    for ranges, column, value in ((zoom_in, 0, 1), (zoom_out, 0, 2), (af, 1, 1), (wind, 2, 1)):
        for start, end in ranges:
            words[(starts >= start) & (starts < end), column] = value
    return words


def read_table(path):
    """A tuning-table file's bytes (exactly TABLE_BYTES)."""
    with open(path, "rb") as f:
        size = os.fstat(f.fileno()).st_size
        data = f.read(TABLE_BYTES + 1)
    if size != TABLE_BYTES and data.lstrip()[:1] == b"{":
        raise Error(f"{path}: a table's JSON, not a table file; read it with table_from_json(open(path).read())")
    if size != TABLE_BYTES:
        raise Error(f"{path}: not a tuning table ({size} bytes, expected {TABLE_BYTES})")
    return data


def write_table(path, table):
    """Writes table bytes atomically (a temporary file beside `path`, then renamed)."""
    if len(table) != TABLE_BYTES:
        raise Error(f"a tuning table has {TABLE_BYTES} bytes, not {len(table)}")
    write_atomically(path, lambda f: f.write(table))


def write_atomically(path, write):
    """Calls ``write(file)`` on a new file beside `path`, then renames it to
    `path`: nobody sees a partial file, and a failed or killed run leaves the
    old one. A new file gets the umask's permissions, a replaced one keeps its
    own; a symbolic link is written through."""
    path = os.path.realpath(path)
    folder, name = os.path.split(path)
    while True:
        temp = os.path.join(folder, f".vorl-{secrets.token_hex(4)}-{name}")
        try:
            fd = os.open(temp, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o666)
            break
        except FileExistsError:
            continue
    try:
        with os.fdopen(fd, "wb") as f:
            write(f)
            f.flush()
            if os.path.exists(path):
                os.chmod(f.fileno(), os.stat(path).st_mode & 0o7777)
            os.fsync(f.fileno())
        os.replace(temp, path)
    except BaseException:
        os.unlink(temp)
        raise


def table_to_dict(table):
    """Every field of the table by name (the JSON of ``vorl table to-json``)."""
    return json.loads(table_to_json(table))


def table_from_dict(fields):
    """Table bytes from a dict as table_to_dict gives it (checksum sealed)."""
    return table_from_json(json.dumps(fields))


def detect(audio, table=None):
    """Drive words from the recording itself, shape (blocks, 3), as
    ``vorl process`` detects them when it is given no drive state: the
    channel-difference detector over the whole take, short motor runs marked
    as autofocus. A `table` with distinct "WT"/"TW" templates tells the
    zoom direction; without one every zoom drive is 1."""
    return _vorl.detect(_samples(audio), table)


def fit(audio, drive, base=None, quick=False, rate=48000):
    """A table for a camera from its calibration take, as ``vorl table fit``
    makes it: `audio` int16 of shape (frames, 2), the motor in a quiet room;
    `drive` the drive words per block, one row for every block of the take;
    `base` the table bytes to start from (default: the built-in table);
    quick=True skips the held-out search. Returns (table bytes, report
    text). Raises Error for a take the fitter cannot use."""
    return _vorl.fit_table(_samples(audio), drive, base, quick, rate)
