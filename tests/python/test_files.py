"""process_file against the larkspin program, and the installed package."""

import os
import subprocess
import sys

import numpy as np
import pytest
import soundfile

import larkspin
from conftest import noise


@pytest.mark.parametrize(
    "channels, subtype, align, rate",
    [(2, "FLOAT", True, 48000), (1, "PCM_16", False, 44100)],
)
def test_process_file_writes_what_the_program_writes(program, payload, tmp_path, channels, subtype, align, rate):
    source = tmp_path / "in.wav"
    soundfile.write(source, noise(channels, 7777, level=0.4).T, rate, subtype=subtype)
    (tmp_path / "preset.bin").write_bytes(payload)
    arguments = ["--preset", tmp_path / "preset.bin", "--intensity", "1.0", "--block", "512"]
    subprocess.run(
        [program, "process", source, tmp_path / "program.wav", *arguments] + (["--align"] if align else []),
        check=True,
        capture_output=True,
    )
    returned = larkspin.process_file(
        source, tmp_path / "module.wav", preset=payload, intensity=1.0, align=align, max_block=512
    )

    written, written_rate = soundfile.read(tmp_path / "module.wav", dtype="float32", always_2d=True)
    expected, _ = soundfile.read(tmp_path / "program.wav", dtype="float32", always_2d=True)
    assert soundfile.info(tmp_path / "module.wav").subtype == subtype and written_rate == rate
    assert returned.shape == (channels, 7777)
    np.testing.assert_array_equal(written, expected)


def test_installed_package_imports_from_a_user_prefix(tmp_path):
    """cmake --install into a prefix that Python searches (here the user
    base, as for --prefix ~/.local): no PYTHONPATH, no LD_LIBRARY_PATH."""
    subprocess.run(
        ["cmake", "--install", os.environ["LARKSPIN_BUILD_DIR"], "--prefix", tmp_path], check=True, capture_output=True
    )
    environment = {k: v for k, v in os.environ.items() if k not in ("PYTHONPATH", "LD_LIBRARY_PATH")}
    environment["PYTHONUSERBASE"] = str(tmp_path)
    script = (
        "import numpy, larkspin; p = larkspin.Processor(48000, 1);"
        "print(larkspin.__file__, p.process(numpy.zeros(64)).shape)"
    )
    result = subprocess.run(
        [sys.executable, "-c", script], env=environment, cwd=tmp_path, check=True, capture_output=True, text=True
    )
    assert result.stdout.startswith(str(tmp_path)) and "(64,)" in result.stdout


def test_every_public_name_is_documented():
    """help() is the user's manual: every public class, function, method and
    property says what it does."""
    undocumented = []
    for name in larkspin.__all__:
        item = getattr(larkspin, name)
        members = vars(item).items() if isinstance(item, type) else []
        for label, member in [(name, item)] + [(f"{name}.{m}", v) for m, v in members if not m.startswith("_")]:
            if not (getattr(member, "__doc__", None) or "").strip():
                undocumented.append(label)
    assert undocumented == []
