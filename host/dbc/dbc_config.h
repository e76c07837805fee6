#pragma once
// The workstation's bus databases: which DBC files are loaded on which channel, each under its
// database name (the file name without ".dbc") and a marker name. Lookups copy out what they
// find, so a reload on another thread never leaves a caller with a dangling pointer.

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/dbc/dbc_database.h"
#include "host/hostbridge_export.h"

namespace hostbridge::dbc {

struct LoadedDatabase {
    int channel = 0;
    std::string name;    // file name without ".dbc"
    std::string marker;  // as configured, or the name; made an identifier (dbc_names.h)
    std::shared_ptr<const Database> database;
};

class HOSTBRIDGE_API DatabaseConfig {
public:
    // Reads `path` and adds it on `channel`; false with "FILE:LINE: reason" on a bad file.
    bool add(int channel, const std::string& path, const std::string& marker, std::string& error);
    // Adds an already read database (tests, generated databases).
    void add(int channel, const std::string& name, const std::string& marker,
             std::shared_ptr<const Database> database);
    void clear();
    std::vector<LoadedDatabase> entries() const;

    // The first signal of that name on `channel` (any when negative) in message `messageId`
    // (any when negative), with its message. False when there is none.
    bool findSignal(int channel, long long messageId, const std::string& signalName,
                    Message& message, Signal& signal) const;
    // The message for a frame on `channel`; false when no database there knows it.
    bool findMessage(int channel, uint32_t id, bool extended, Message& message) const;

private:
    mutable std::mutex mutex_;
    std::vector<LoadedDatabase> entries_;
};

// A database's name: the file name without its directory and ".dbc".
HOSTBRIDGE_API std::string databaseNameOf(const std::string& path);

// The one the workstation uses.
HOSTBRIDGE_API DatabaseConfig& workstationDatabases();

}  // namespace hostbridge::dbc
