#pragma once
// The registers of a convolutional layer: kernel section (0 to 9), leak section (16 to 21), neuron section (32 to 46).
// The numbers between don't exist. Each section has the sizes that it needs, so that the features of the output are
// written three times, each time in a different split.

#include "tessel/registers/Register.h"

namespace tessel::registers::layercore {

// clang-format off

// ---- kernel section
VORNA_REGISTER(00, 0x00, 0xFF, "padding of the input, horizontal stride",
    // bit, width, from
    (0, 3, 0, paddingX, "columns of zeros on each side"),
    (3, 3, 0, paddingY, "rows of zeros on each side"),
    (6, 2, 0, strideX,  "columns that the kernel steps over: 2 to the power of this"))
VORNA_REGISTER(01, 0x00, 0x3F, "vertical stride, kernel",
    (0, 2, 0, strideY,         "rows that the kernel steps over: 2 to the power of this"),
    (2, 4, 0, kernelSizeLess1, "edge of the kernel, less 1"))
VORNA_REGISTER(02, 0x00, 0xFF, "features of the input",
    (0, 8, 0, inputFeaturesLess1Low, "input features, less 1: low part"))
VORNA_REGISTER(03, 0x00, 0xFF, "features of the input, width of the output",
    (0, 2, 8, inputFeaturesLess1High, "input features, less 1: high part"),
    (2, 6, 0, outputWidthLess1,       "columns of an output feature, less 1"))
VORNA_REGISTER(04, 0x00, 0xFF, "height and features of the output",
    (0, 6, 0, outputHeightLess1,      "rows of an output feature, less 1"),
    (6, 2, 0, outputFeaturesLess1Low, "output features, less 1: low part"))
VORNA_REGISTER(05, 0x00, 0xFF, "features of the output",
    (0, 8, 2, outputFeaturesLess1High, "output features, less 1: high part"))
VORNA_REGISTER(06, 0x20, 0xFF, "memory of weights: repair, timing",
    (0, 1, 0, skipKilledWeights, "weights whose kill bit is set are skipped"),
    (1, 7, 0, clockPulse,        "length of the clock pulse"))
VORNA_REGISTER(07, 0x50, 0xFF, "memory of weights: timing",
    (0, 6, 0, clockSetup, "time before the clock pulse"),
    (6, 2, 0, macroRead,  "read mode of the memory macro"))
VORNA_REGISTER(08, 0x40, 0xFF, "memory of weights: self-test",
    (0, 3, 0, testSubBlock,   "block of the memory that is tested"),
    (3, 2, 0, testWordPart,   "part of the word that is tested"),
    (5, 1, 0, testEnable,     "the test runs"),
    (6, 2, 0, testReadTiming, "timing of the test's reads"))
VORNA_REGISTER(09, 0x00, 0x1F, "kernel section: probe",
    (0, 4, 0, probePoint,  "signal that is led out"),
    (4, 1, 0, probeEnable, "the signal is led out"))

// ---- leak section
VORNA_REGISTER(16, 0x00, 0xFF, "leak section: columns, switches",
    (0, 6, 0, outputWidthLess1, "columns of an output feature, less 1"),
    (6, 1, 0, leakEnable,       "the biases are applied"),
    (7, 1, 0, probeEnable,      "the signal of probePoint is led out"))
VORNA_REGISTER(17, 0x00, 0x7F, "leak section: rows, repair",
    (0, 6, 0, outputHeightLess1, "rows of an output feature, less 1"),
    (6, 1, 0, skipKilledBiases,  "biases whose kill bit is set are skipped"))
VORNA_REGISTER(18, 0x00, 0xFF, "leak section: features",
    (0, 8, 0, outputFeaturesLess1Low, "output features, less 1: low part"))
VORNA_REGISTER(19, 0x40, 0xFF, "leak section: features; memory of biases: timing",
    (0, 2, 8, outputFeaturesLess1High, "output features, less 1: high part"),
    (2, 6, 0, clockSetup,              "time before the clock pulse"))
VORNA_REGISTER(20, 0x41, 0xFF, "memory of biases: timing",
    (0, 2, 0, macroRead,  "read mode of the memory macro"),
    (2, 6, 0, clockPulse, "length of the clock pulse"))
VORNA_REGISTER(21, 0x04, 0xFF, "memory of biases: self-test; leak section: probe",
    (0, 1, 0, testWordPart,   "part of the word that is tested"),
    (1, 1, 0, testEnable,     "the test runs"),
    (2, 2, 0, testReadTiming, "timing of the test's reads"),
    (4, 4, 0, probePoint,     "signal that is led out"))

// ---- neuron section
VORNA_REGISTER(32, 0x00, 0xFF, "routes: pooling, layer of the first",
    (0, 2, 0, pooling0, "pooling on the first route: 2 to the power of this"),
    (2, 2, 0, pooling1, "pooling on the second route: 2 to the power of this"),
    (4, 4, 0, layer0,   "layer that the first route leads to"))
VORNA_REGISTER(33, 0x00, 0xFF, "first route: shift of features",
    (0, 8, 0, featureShift0Low, "first feature in the target's input: low part"))
VORNA_REGISTER(34, 0x00, 0xFF, "routes: shift of features",
    (0, 2, 8, featureShift0High, "first route's first feature in the target's input: high part"),
    (2, 6, 0, featureShift1Low,  "second route's first feature in the target's input: low part"))
VORNA_REGISTER(35, 0x00, 0x7F, "second route: shift of features; switches",
    (0, 4, 6, featureShift1High, "second route's first feature in the target's input: high part"),
    (4, 1, 0, enable0,           "spikes take the first route"),
    (5, 1, 0, enable1,           "spikes take the second route"),
    (6, 1, 0, monitorEnable,     "spikes also leave the chip"))
VORNA_REGISTER(36, 0x00, 0xFF, "layer of the second route, own layer",
    (0, 4, 0, layer1,   "layer that the second route leads to"),
    (4, 4, 0, ownLayer, "number of this layer, which its spikes carry"))
VORNA_REGISTER(37, 0x00, 0xFF, "neuron section: columns, features",
    (0, 6, 0, outputWidthLess1,       "columns of an output feature, less 1"),
    (6, 2, 0, outputFeaturesLess1Low, "output features, less 1: low part"))
VORNA_REGISTER(38, 0x00, 0xFF, "neuron section: features",
    (0, 8, 2, outputFeaturesLess1High, "output features, less 1: high part"))
VORNA_REGISTER(39, 0x00, 0xFF, "upper threshold",
    (0, 8, 0, thresholdHighLow, "upper threshold, two's complement: low byte"))
VORNA_REGISTER(40, 0x00, 0xFF, "upper threshold",
    (0, 8, 8, thresholdHighHigh, "upper threshold, two's complement: high byte"))
VORNA_REGISTER(41, 0x00, 0xFF, "lower threshold",
    (0, 8, 0, thresholdLowLow, "lower threshold, two's complement: low byte"))
VORNA_REGISTER(42, 0x00, 0xFF, "lower threshold",
    (0, 8, 8, thresholdLowHigh, "lower threshold, two's complement: high byte"))
VORNA_REGISTER(43, 0x40, 0xFF, "mode of the neurons; memory of neuron states: repair, timing",
    (0, 1, 0, returnToZero,      "a neuron that spikes goes back to zero"),
    (1, 1, 0, skipKilledNeurons, "neurons whose kill bit is set are skipped"),
    (2, 6, 0, clockSetup,        "time before the clock pulse"))
VORNA_REGISTER(44, 0x41, 0xFF, "memory of neuron states: timing",
    (0, 2, 0, macroRead,  "read mode of the memory macro"),
    (2, 6, 0, clockPulse, "length of the clock pulse"))
VORNA_REGISTER(45, 0x40, 0xFF, "memory of neuron states: self-test",
    (0, 3, 0, testSubBlock,   "block of the memory that is tested"),
    (3, 2, 0, testWordPart,   "part of the word that is tested"),
    (5, 1, 0, testEnable,     "the test runs"),
    (6, 2, 0, testReadTiming, "timing of the test's reads"))
VORNA_REGISTER(46, 0x00, 0x1F, "neuron section: probe",
    (0, 1, 0, probeEnable, "the signal is led out"),
    (1, 4, 0, probePoint,  "signal that is led out"))

// clang-format on

using Registers =
    RegisterList<Register00, Register01, Register02, Register03, Register04, Register05, Register06, Register07,
                 Register08, Register09, Register16, Register17, Register18, Register19, Register20, Register21,
                 Register32, Register33, Register34, Register35, Register36, Register37, Register38, Register39,
                 Register40, Register41, Register42, Register43, Register44, Register45, Register46>;
static_assert(Registers::count == 31);

} // namespace tessel::registers::layercore
