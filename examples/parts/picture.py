"""Pictures of events with matplotlib.

    image = picture.of_events(events, 346, 260)
    picture.save("scene.png", [picture.Panel("What the camera saw", image)])
"""
import dataclasses
import typing

import matplotlib
import numpy

matplotlib.use("Agg")  # draws into files and needs no screen
import matplotlib.patches
import matplotlib.pyplot

BACKGROUND, GROUND = "#0d1117", numpy.array([5, 7, 11]) / 255
ON, OFF, REGION, GREY = "#ffb040", "#409cff", "#78dc8c", "#8490a0"


@dataclasses.dataclass
class Panel:
    """One image, a title above it, a line of text below, and a marked region (left, top, width, height), in pixels."""
    title: str
    image: numpy.ndarray
    text: str = ""
    region: typing.Optional[tuple] = None


def of_events(events, width, height):
    """An RGB image, [height][width][3] from 0 to 1: orange where pixels became brighter, blue where darker. The
    older the events are, the dimmer. `events` are in the order of their time stamps."""
    light = numpy.zeros((height, width, 2), numpy.float32)
    if events:
        x, y, polarity, time = (numpy.array([getattr(event, name) for event in events], numpy.int64)
                                for name in ("x", "y", "polarity", "timestamp"))
        age = (time[-1] - time) / max(1, time[-1] - time[0])
        numpy.add.at(light, (y, x, 1 - polarity), 0.22 + 0.6 * (1 - age) ** 2)
    colours = numpy.array([matplotlib.colors.to_rgb(ON), matplotlib.colors.to_rgb(OFF)])
    return numpy.clip(GROUND + numpy.minimum(light, 1) @ colours, 0, 1)


def save(path, panels):
    """Writes the panels side by side, with a legend below, as a PNG of 1480 x 690 pixels."""
    figure, axes = matplotlib.pyplot.subplots(1, len(panels), figsize=(14.8, 6.9), dpi=100, facecolor=BACKGROUND, squeeze=False)
    for axis, panel in zip(axes[0], panels):
        axis.imshow(panel.image, interpolation="nearest")
        axis.set_title(panel.title, color="white", loc="left", fontsize=17)
        axis.set_xlabel(panel.text, color=GREY, loc="left", fontsize=12)
        axis.tick_params(colors=GREY)
        if panel.region:
            left, top, width, height = panel.region
            axis.add_patch(matplotlib.patches.Rectangle((left - 0.5, top - 0.5), width, height, fill=False, edgecolor=REGION, linewidth=2))
    marks = [(ON, "brighter"), (OFF, "darker")] + [(REGION, "region of interest")] * any(panel.region for panel in panels)
    figure.legend(handles=[matplotlib.patches.Patch(color=colour, label=text) for colour, text in marks], loc="lower left",
                  ncol=len(marks), labelcolor=GREY, frameon=False, fontsize=12, title="dim: older", title_fontsize=11,
                  alignment="left").get_title().set_color(GREY)
    figure.tight_layout(rect=(0, 0.08, 1, 1))
    figure.savefig(path, facecolor=BACKGROUND)
    matplotlib.pyplot.close(figure)
