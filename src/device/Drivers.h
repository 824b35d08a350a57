#pragma once
// The three roles that a driver can play.

#include "device/Board.h"
#include "device/DeviceAPI.h"
#include "device/DeviceModel.h"
