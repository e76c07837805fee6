#pragma once
// Everything the simulated workstation offers, in one include.

#include "host/box_runner.h"
#include "host/log_interface.h"
#include "host/frame_kit.h"
#include "host/sdk_receiver.h"
#include "host/uds/uds_host.h"
#include "host/vars/system_variate.h"
#include "host/workstation.h"
