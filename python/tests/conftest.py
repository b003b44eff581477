import os
import subprocess

import pytest


@pytest.fixture(scope="session")
def demo(tmp_path_factory):
    """The demo recording (noisy.wav, clean.wav, drive.txt) in a fresh folder."""
    folder = tmp_path_factory.mktemp("demo")
    subprocess.run([os.environ["VORL_MAKE_DEMO"], str(folder)], check=True, stdout=subprocess.DEVNULL)
    return folder


def run_tool(*args):
    return subprocess.run([os.environ["VORL_TOOL"], *map(str, args)], check=True, capture_output=True, text=True)
