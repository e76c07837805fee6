#pragma once
// CAN databases on the command line: "--dbc FILE.dbc[@CHANNEL]", reading them, decoding frames
// with them, and loading them into the workstation for a measurement or a compile.

#include <memory>
#include <string>
#include <vector>

#include "apps/ruvo/can_log.h"
#include "host/dbc/dbc_database.h"

namespace cli {

struct DbcSpec {
    std::string file;  // as typed
    int channel = -1;  // -1: none given
};

// "FILE.dbc[@CHANNEL]", CHANNEL 0 to 63 in decimal; UsageError otherwise.
DbcSpec parseDbcSpec(const std::string& text);

// The database, or std::runtime_error "FILE:LINE: reason" naming the file as typed.
std::shared_ptr<hostbridge::dbc::Database> readDatabase(const std::string& path);

struct ChannelDatabase {
    int channel;  // -1: every channel
    std::shared_ptr<const hostbridge::dbc::Database> database;
};

// One line for a frame: its message and physical signal values, by the first database on its
// channel that knows the id; as a JSON object when `json`.
std::string decodedLine(const canlog::Frame& frame, const std::vector<ChannelDatabase>& databases, bool json);

// Replaces the workstation's databases by `specs` (each needs a channel) and rebuilds the message
// index and the generated records of the installation's "database.h", so applets compiled from
// now on can use them. Returns them for decoding.
std::vector<ChannelDatabase> loadWorkstationDatabases(const std::vector<DbcSpec>& specs);

// Decimal or 0x-prefixed hex; -1 when `text` is neither.
long long parseId(const std::string& text);
// "%.15g", and nan/inf spelled out.
std::string number(double v);

}  // namespace cli
