#pragma once
#include "../../StandIn.h"
