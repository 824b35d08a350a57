#pragma once
// The two chip families, tessel and ravik, share one text. What declares types is an .inc file, which a header of each
// family includes:
//
//   #pragma push_macro("VORNA_FAMILY")
//   #undef VORNA_FAMILY
//   #define VORNA_FAMILY ravik
//   #include "tessel/family/Events.inc" // opens namespace VORNA_FAMILY::event itself
//   #pragma pop_macro("VORNA_FAMILY")
//
// so every type is a real type of its family's namespace, and a value of one family never passes for one of the other.
// That header includes what the .inc file uses. Functions are in .cpp files, which are compiled once for each family:
// see Family.h. The macros below spell the names that contain the family's.

#define VORNA_FAMILY_JOIN_(a, b) a##b
#define VORNA_FAMILY_JOIN(a, b) VORNA_FAMILY_JOIN_(a, b)
#define VORNA_FAMILY_TEXT_(a) #a
#define VORNA_FAMILY_TEXT_OF(a) VORNA_FAMILY_TEXT_(a)

#define VORNA_FAMILY_TITLE_OF_tessel Tessel
#define VORNA_FAMILY_TITLE_OF_ravik Ravik
/// Ravik
#define VORNA_FAMILY_TITLE VORNA_FAMILY_JOIN(VORNA_FAMILY_TITLE_OF_, VORNA_FAMILY)

/// VORNA_FAMILY_NAME(Configuration) is RavikConfiguration.
#define VORNA_FAMILY_NAME(suffix) VORNA_FAMILY_JOIN(VORNA_FAMILY_TITLE, suffix)
/// VORNA_FAMILY_FUNCTION(ConfigurationToEvent) is ravikConfigurationToEvent.
#define VORNA_FAMILY_FUNCTION(suffix) VORNA_FAMILY_JOIN(VORNA_FAMILY, suffix)
/// "ravik", and so VORNA_FAMILY_TEXT "::event::OutputEvent" is a name in the form that Python's binder takes.
#define VORNA_FAMILY_TEXT VORNA_FAMILY_TEXT_OF(VORNA_FAMILY)
