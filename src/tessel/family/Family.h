#pragma once
// The first include of a .cpp file that CMake compiles once for each chip family (FAMILY in cmake/VornaModule.cmake),
// with VORNA_FAMILY defined as tessel or ravik:
//
//   #include "tessel/family/Family.h"
//   #include VORNA_FAMILY_HEADER_IN(configuration, Validation) // "ravik/configuration/Validation.h"
//
//   namespace VORNA_FAMILY::configuration {
//
// An editor that doesn't know the definition sees the code of tessel.

#include "tessel/family/Names.h"

#ifndef VORNA_FAMILY
#define VORNA_FAMILY tessel
#endif

// A blank in these two would be one in the name of the file.
// clang-format off
/// VORNA_FAMILY_HEADER(Model) is "ravik/Model.h".
#define VORNA_FAMILY_HEADER(name) VORNA_FAMILY_TEXT_OF(VORNA_FAMILY/name.h)
/// VORNA_FAMILY_HEADER_IN(event, Codec) is "ravik/event/Codec.h".
#define VORNA_FAMILY_HEADER_IN(folder, name) VORNA_FAMILY_TEXT_OF(VORNA_FAMILY/folder/name.h)
// clang-format on
