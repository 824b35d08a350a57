// Python classes of the event cameras.

#include "davis/Davis240.h"
#include "davis/DvXplorer.h"
#include "davis/event/DvsEvent.h"
#include "python/EventArrays.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

VORNA_BIND_LOCAL(davis::event::DvsEvent)
VORNA_BIND_REMOTE(davis::event::DvsEvent)
VORNA_BIND_REMOTE(davis::Davis240)
VORNA_BIND_REMOTE(davis::DvXplorer)
VORNA_BIND_REMOTE(graph::nodes::BasicSourceNode<davis::event::DvsEvent>)
