#include "host/dbc/dbc_config.h"
#include "host/dbc/dbc_names.h"

namespace hostbridge::dbc {

std::string databaseNameOf(const std::string& path) {
    size_t slash = path.find_last_of("/\\");
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    if (base.size() > 4 && (base.compare(base.size() - 4, 4, ".dbc") == 0 ||
                            base.compare(base.size() - 4, 4, ".DBC") == 0))
        base.resize(base.size() - 4);
    return base;
}

bool DatabaseConfig::add(int channel, const std::string& path, const std::string& marker,
                         std::string& error) {
    auto db = std::make_shared<Database>();
    if (!readDbcFile(path, *db, error)) return false;
    std::string name = databaseNameOf(path);
    add(channel, name, marker, std::move(db));
    return true;
}

void DatabaseConfig::add(int channel, const std::string& name, const std::string& marker,
                         std::shared_ptr<const Database> database) {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.push_back({channel, name, identifierFor(marker.empty() ? name : marker), std::move(database)});
}

void DatabaseConfig::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
}

std::vector<LoadedDatabase> DatabaseConfig::entries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return entries_;
}

bool DatabaseConfig::findSignal(int channel, long long messageId, const std::string& signalName,
                                Message& message, Signal& signal) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const LoadedDatabase& e : entries_) {
        if (channel >= 0 && e.channel != channel) continue;
        for (const Message& m : e.database->messages) {
            if (messageId >= 0 && m.id != static_cast<unsigned long long>(messageId)) continue;
            if (const Signal* s = m.findSignal(signalName)) {
                message = m;
                signal = *s;
                return true;
            }
        }
    }
    return false;
}

bool DatabaseConfig::findMessage(int channel, uint32_t id, bool extended, Message& message) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const LoadedDatabase& e : entries_) {
        if (channel >= 0 && e.channel != channel) continue;
        if (const Message* m = e.database->findMessage(id, extended)) {
            message = *m;
            return true;
        }
    }
    return false;
}

DatabaseConfig& workstationDatabases() {
    static DatabaseConfig config;
    return config;
}

}  // namespace hostbridge::dbc
