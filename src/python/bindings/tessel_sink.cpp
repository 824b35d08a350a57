// The proxy of the sink of a tessel chip's model; a ravik chip's model has a sink without functions of its own.

#include "tessel/ModelSink.h"
#include "trovi/Dispatcher.h"
#include "trovi/python/Remote.h"

VORNA_BIND_REMOTE(tessel::TesselModelSink)
