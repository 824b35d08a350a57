"""Every example runs as a user would run it and says what it is meant to show; the README's script too."""
import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

from conftest import free_endpoints

SOURCE = Path(os.environ.get("VORNA_SOURCE_DIR", Path(__file__).resolve().parents[2]))
EXAMPLES = SOURCE / "examples"
LIMIT = 90  # for a machine under load and builds with sanitizers; the examples take 1 to 3 seconds

# What an example must print, beside ending well. One that isn't listed here must only end well.
TELLING = {
    "01-events-and-json.py": ["refused: davis.event.DvsEvent.x: expected int in [0, 65535]", "read back equal: True"],
    "02-filter-a-recording.py": ["20000 events in, 2500 through", "(x=0, y=0,"],
    "03-server-and-client.py": ["the store holds ['DeviceController', 'VornaNode']", "got 0x151f, 0x12b"],
    "04-watch-a-camera.py": [" events/s", "% ON"],
    "05-send-your-own-events.py": ["came: [(0, 0), (2, 5)]"],
    "06-change-filters-while-running.py": ["Cannot add node while graph is running!", "columns 301 to 343:"],
    "07-unplug-a-camera.py": ["no camera: ", "events since then: 0", "timed out on content request"],
    "08-configure-a-chip.py": ["as built: valid = True", "29175 events", "broken: valid = False",
                               "Layer[3] input size x: 16 different than Layer[0] output size x: 32 pooling: 1",
                               "Biases array must have dimension [10]"],
    "09-register-writes.py": ["inputFeaturesLess1High", "DVS", "onChannelDisable"],
    "10-run-a-chip-model.py": ["went to the chip as 337 events", "must be in [0,3]", "through the graph: [(3, 3, 2)]",
                               "block 13 holds 77"],
    "11-boards-in-software.py": ["emulated dev kit, serial number KIT1, at 250:1", "configured: False",
                                 "emulated dev kit, serial number unknown",
                                 "flash: [1, 0, 2, 0, 3, 0, 4, 0, 255, 255]", "emulated dev kit, serial number KIT1, at 250:3",
                                 "flash: [1, 0, 2, 0] problems: []"],
}


def run(arguments, folder, path=""):
    environment = dict(os.environ, PYTHONPATH=os.pathsep.join(filter(None, (str(path), os.environ.get("PYTHONPATH")))))
    ended = subprocess.run([sys.executable, *map(str, arguments)], cwd=str(folder), timeout=LIMIT, stdin=subprocess.DEVNULL, env=environment,
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True)
    assert ended.returncode == 0, ended.stdout + ended.stderr
    return ended.stdout


@pytest.mark.parametrize("name", sorted(path.name for path in EXAMPLES.glob("[0-9]*.py")))
def test_an_example_runs(name, tmp_path):
    output = run([EXAMPLES / name], tmp_path)
    for text in TELLING.get(name, []):
        assert text in output
    assert list(tmp_path.iterdir()) == [], "an example leaves nothing behind"


@pytest.mark.parametrize("name", sorted(p.name for p in EXAMPLES.glob("*.py") if "argparse" in p.read_text(encoding="utf-8")))
def test_what_takes_arguments_has_a_help(name, tmp_path):
    assert "--help" in run([EXAMPLES / name, "--help"], tmp_path)


def warm_and_cold(path):
    """Pixels of ON and of OFF events in the left and in the right half of a picture, below the titles and above the
    captions. Nothing where this interpreter has no matplotlib."""
    try:
        from matplotlib.image import imread
    except ImportError:
        return []
    rows = imread(path)[70:570]
    difference = rows[:, :, 0] - rows[:, :, 2]
    return [count for half in (difference[:, :740], difference[:, 740:]) for count in ((half > 0.15).sum(), (half < -0.15).sum())]


def demo(folder, *arguments, **options):
    output = run([EXAMPLES / "demo.py", "--seconds", "1.5", *arguments], folder, **options)
    match = re.search(r"^([\d,]+) events came from the camera; ([\d,]+) came through the graph\.$", output, re.M)
    assert match, output
    came, through = (int(group.replace(",", "")) for group in match.groups())
    return output, came, through


def test_the_demo_shows_both_processes_at_work(tmp_path):
    output, came, through = demo(tmp_path, "--png", "shown.png")
    for text in ("+ DeviceController (object 0 of store 10)", "+ VornaNode", "+ DvXplorer", "+ Davis240",
                 "stopped the camera by proxy", "started it again", "events/s"):
        assert text in output
    assert came > 10_000
    assert 0.05 * came < through < 0.5 * came, "cropped, then halved"
    assert all(count > 500 for count in warm_and_cold(tmp_path / "shown.png")), "a blank panel"


def test_the_demo_plays_a_recording_and_lacks_only_the_picture_without_matplotlib(tmp_path):
    hidden = tmp_path / "hidden"
    hidden.mkdir()
    (hidden / "matplotlib.py").write_text("raise ImportError('hidden')")
    output, came, through = demo(tmp_path, "--recording", SOURCE / "tests" / "data" / "digit_34x34.bin", path=hidden)
    assert "34 x 34 pixels" in output and "apt install python3-matplotlib" in output
    assert 0 < through < came and not (tmp_path / "demo.png").exists()


def test_the_demo_says_when_a_recording_cannot_be_read(tmp_path):
    ended = subprocess.run([sys.executable, str(EXAMPLES / "demo.py"), "--recording", "missing.aedat"], cwd=str(tmp_path),
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True, timeout=LIMIT)
    assert ended.returncode == 1
    assert ended.stderr.startswith("demo: ") and "missing.aedat" in ended.stderr and "Traceback" not in ended.stderr


def test_the_demo_ends_cleanly_when_interrupted(tmp_path):
    import signal
    process = subprocess.Popen([sys.executable, str(EXAMPLES / "demo.py"), "--seconds", "60"], cwd=str(tmp_path),
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True)
    try:
        seen = next(line for line in process.stdout if "events/s" in line)
        process.send_signal(signal.SIGINT)
        rest, errors = process.communicate(timeout=LIMIT)
    finally:
        process.kill()
    assert (process.returncode, errors) == (130, ""), seen + rest + errors
    assert rest.endswith("Interrupted; all is closed.\n")


def test_the_script_in_the_readme_works(tmp_path):
    script = re.search(r"^```python\n(.*?)^```", (SOURCE / "README.md").read_text(encoding="utf-8"), re.M | re.S).group(1)
    for fixed, free in zip(("tcp://127.0.0.1:7001", "tcp://127.0.0.1:7002"), free_endpoints()):
        assert fixed in script
        script = script.replace(fixed, free)
    assert "DvsEvent(x=" in run(["-c", script], tmp_path)
