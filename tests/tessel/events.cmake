vorna_test(NAME chip_events_test
  SOURCES CodecTest.cpp EventsTest.cpp
  DEPS tessel_events ravik_events)
