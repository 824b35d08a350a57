// Python classes of the board packet protocol: its modules, and the loops and endpoints that boards show.

#include "keplin/io/KeplinEndpoint.h"
#include "keplin/io/KeplinReaderWriter.h"
#include "keplin/modules/Adc.h"
#include "keplin/modules/Dac.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

VORNA_BIND_LOCAL(keplin::modules::adc::AdcSample)
VORNA_BIND_LOCAL(keplin::modules::dac::DacLinearChannelSpec)

VORNA_BIND_REMOTE(keplin::modules::adc::AdcSample)
VORNA_BIND_REMOTE(keplin::modules::dac::DacLinearChannelSpec)
VORNA_BIND_REMOTE(keplin::modules::adc::Adc)
VORNA_BIND_REMOTE(keplin::modules::dac::Dac)
VORNA_BIND_REMOTE(keplin::KeplinEndpoint)
VORNA_BIND_REMOTE(keplin::KeplinReaderWriter)
