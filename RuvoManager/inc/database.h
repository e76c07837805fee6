#pragma once
// Message records of the workstation's CAN databases, one namespace per database and channel
// (MARKER_CANn, n counting channels from 1) and one struct per message with a double member per
// signal:
//     vw_mqb_CAN1::ESP_21 esp;      // frame initialised: id, DLC, channel
//     esp.ESP_v_Signal = 42.5;
//     esp.send();                   // pack(): signals into frame.FData via calculate_can_message
// The sections below are rewritten by the database index; text outside them is kept.

#include "applet_global_def.h"

// CAN Database
// LIN Databases
