#pragma once
// Queries over the index of the workstation's CAN messages, and its rebuild from the host's
// database configuration.

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "model/RuvoFunction.h"
#include "model/dbc_info.h"

namespace ruvo::dbc_index {

// Clears the index and refills it from the workstation's loaded CAN databases.
void rebuild(RuvoDbcInfo& info);

// Messages of every database bound to a channel.
int messageCount(const RuvoDbcInfo& info);

// Fills up to `capacity` records in the order of messageCount's walk; the number filled.
int fillFunctions(const RuvoDbcInfo& info, RuvoFunction* out, unsigned capacity);

int fillMessageMap(const RuvoDbcInfo& info, std::map<int, std::vector<dbcMessageInfoStruct>>& out,
                   int channel, const std::string& filter);

bool messageSignals(const RuvoDbcInfo& info, int channel, const std::string& database, u32 id,
                    std::vector<std::string>& out);

// Messages with a signal whose name holds `filter` (case-insensitive): (channel, full name, id).
void findBySignal(const RuvoDbcInfo& info, const std::string& filter,
                  std::vector<std::tuple<int, std::string, u32>>& out);

}  // namespace ruvo::dbc_index
