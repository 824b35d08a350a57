#pragma once
// The registers of the event camera's front end.

#include "tessel/registers/Register.h"

namespace tessel::registers::dvscore {

// clang-format off
VORNA_REGISTER(00, 0x00, 0xFF, "switches; the three of the channels are active low",
    // bit, width, from
    (0, 1, 0, offChannelDisable,   "events of polarity OFF are dropped"),
    (1, 1, 0, onChannelDisable,    "events of polarity ON are dropped"),
    (2, 1, 0, mergeDisable,        "the polarities stay two features"),
    (3, 1, 0, mirrorDiagonal,      "x and y change places"),
    (4, 1, 0, enable0,             "events take the first route"),
    (5, 1, 0, enable1,             "events take the second route"),
    (6, 1, 0, monitorEnable,       "what the block gives also leaves the chip"),
    (7, 1, 0, monitorSensorEnable, "raw events of the sensor also leave the chip"))
VORNA_REGISTER(01, 0x00, 0xFF, "columns: pooling, first",
    (0, 1, 0, poolingX2, "two columns become one"),
    (1, 7, 0, originX,   "first column that passes"))
VORNA_REGISTER(02, 0x00, 0xFF, "rows: pooling, first",
    (0, 1, 0, poolingY2, "two rows become one"),
    (1, 7, 0, originY,   "first row that passes"))
VORNA_REGISTER(03, 0x00, 0xFF, "columns: mirror, last",
    (0, 1, 0, mirrorX, "columns are counted from the other side"),
    (1, 7, 0, cutX,    "last column that passes"))
VORNA_REGISTER(04, 0x00, 0xFF, "rows: mirror, last",
    (0, 1, 0, mirrorY, "rows are counted from the other side"),
    (1, 7, 0, cutY,    "last row that passes"))
VORNA_REGISTER(05, 0x00, 0xFF, "layers of the routes",
    (0, 4, 0, layer0, "layer that the first route leads to"),
    (4, 4, 0, layer1, "layer that the second route leads to"))
VORNA_REGISTER(06, 0x00, 0xFF, "numbers that stand for the camera in events that leave the chip",
    (0, 4, 0, ownLayer,    "of what the block gives"),
    (4, 4, 0, sensorLayer, "of raw events of the sensor"))
VORNA_REGISTER(07, 0x40, 0xFF, "timing of the sensor",
    (0, 8, 0, sensorTiming, "timing of the sensor's handshake"))
VORNA_REGISTER(08, 0x00, 0xFF, "bias currents of the sensor",
    (0, 4, 0, currentControlP3, "bias current 3"),
    (4, 4, 0, currentControlP4, "bias current 4"))
VORNA_REGISTER(09, 0x10, 0x7F, "bias current of the sensor, switches",
    (0, 4, 0, currentControlP5, "bias current 5"),
    (4, 1, 0, passSensorEvents, "events of the chip's own sensor go on into the chip"),
    (5, 1, 0, poolingX4,        "four columns become one"),
    (6, 1, 0, poolingY4,        "four rows become one"))
VORNA_REGISTER(10, 0x00, 0x0F, "probe",
    (0, 4, 0, probePoint, "signal that is led out"))
VORNA_REGISTER(11, 0x00, 0xFF, "bias currents of the sensor",
    (0, 4, 0, currentControlP6, "bias current 6"),
    (4, 4, 0, currentControlP7, "bias current 7"))
// clang-format on

using Registers = RegisterList<Register00, Register01, Register02, Register03, Register04, Register05, Register06,
                               Register07, Register08, Register09, Register10, Register11>;
static_assert(Registers::count == 12);

} // namespace tessel::registers::dvscore
