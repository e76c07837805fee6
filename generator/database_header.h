#pragma once
// Keeps the generated message records of "database.h" in step with the database index: only the
// stretch between the line "// CAN Database" and "// LIN Databases" is rewritten, section by
// section (one section per database and channel), from two template files beside the header.

#include <string>
#include <vector>

#include "model/dbc_info.h"
#include "model/text_file.h"

namespace ruvo::database_header {

// Writes the sections of the databases passing the channel filter (below 0: all) and the name
// filter (empty: all), handing the text to `out` at each section mark and every 100 messages.
void generateSections(const TextSink& out, const RuvoDbcInfo& info, int channel, const std::string& filter,
                      const std::string& propertyTemplate, const std::string& recordTemplate);

// Erases one section "// NAME_Begin" .. "// NAME_End" and its line end; false when absent.
bool removeSection(std::string& text, const std::string& name);
// Erases every section of every name, repeated ones included.
void removeSections(std::string& text, const std::vector<std::string>& names);

// Brings the header under `includeRoot` up to date after an index update. `marker` is the
// marker name of `database` resolved before the index was rebuilt. Nothing is reported; a header
// without both frame lines is left alone. The new text replaces the old one in one rename, so a
// compile reading the header never sees half of it, and a failed write leaves the old one.
void update(const std::string& includeRoot, const RuvoDbcInfo& info, int op, int channel,
            const std::string& database, const std::string& marker);

}  // namespace ruvo::database_header
