#pragma once
// The two chip families, tessel and ravik, share one text: an .inc file is compiled once for each, between
//
//   #define VORNA_FAMILY ravik
//   #define VORNA_FAMILY_TITLE Ravik
//   #include "tessel/family/Events.inc" // opens namespace VORNA_FAMILY::event itself
//   #undef VORNA_FAMILY_TITLE
//   #undef VORNA_FAMILY
//
// so that every type is a real type of its family's namespace, and a value of one family is never taken for one of the
// other. What an .inc file uses is included by the header or source that includes it, outside of any namespace. The
// macros below spell the names that hold the family's.

#define VORNA_FAMILY_JOIN_(a, b) a##b
#define VORNA_FAMILY_JOIN(a, b) VORNA_FAMILY_JOIN_(a, b)
#define VORNA_FAMILY_TEXT_(a) #a
#define VORNA_FAMILY_TEXT_OF(a) VORNA_FAMILY_TEXT_(a)

/// VORNA_FAMILY_NAME(Configuration) is RavikConfiguration.
#define VORNA_FAMILY_NAME(suffix) VORNA_FAMILY_JOIN(VORNA_FAMILY_TITLE, suffix)
/// VORNA_FAMILY_FUNCTION(ConfigurationToEvent) is ravikConfigurationToEvent.
#define VORNA_FAMILY_FUNCTION(suffix) VORNA_FAMILY_JOIN(VORNA_FAMILY, suffix)
/// "ravik", and so VORNA_FAMILY_TEXT "::event::OutputEvent" is a name as Python's binder takes it.
#define VORNA_FAMILY_TEXT VORNA_FAMILY_TEXT_OF(VORNA_FAMILY)
