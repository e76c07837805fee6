#include "apps/ruvo/bus_peers.h"

#include <cjson/cJSON.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "apps/ruvo/cli.h"

namespace cli {

namespace {

std::string hexId(uint32_t id) {
    char text[16];
    std::snprintf(text, sizeof text, "%X", id);
    return text;
}

// An XCP slave file describes its CAN ids under "can"; an ECU file has "addressing". Anything
// else goes to the ECU loader, which tells what is wrong with it.
bool isXcpSlaveFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::unique_ptr<cJSON, void (*)(cJSON*)> root(cJSON_ParseWithLength(text.data(), text.size()), cJSON_Delete);
    return cJSON_IsObject(root.get()) && cJSON_GetObjectItemCaseSensitive(root.get(), "can") != nullptr &&
           cJSON_GetObjectItemCaseSensitive(root.get(), "addressing") == nullptr;
}

}  // namespace

void BusPeers::setListen(const std::string& address) {
    std::string error;
    if (!hostbridge::parseListenAddress(address, &options_.host, &options_.port, &error)) throw UsageError(error);
    listen_ = address;
}

void BusPeers::startEcus(const std::vector<std::string>& given) {
    std::vector<std::string> files;
    for (const std::string& file : given) {
        if (isXcpSlaveFile(userPath(file))) {
            xcpFiles_.push_back(file);
        } else {
            files.push_back(file);
        }
    }
    std::vector<hostbridge::ecu::EcuConfig> configs(files.size());
    for (size_t i = 0; i < files.size(); ++i) {
        std::string error;
        if (!hostbridge::ecu::loadEcuConfig(userPath(files[i]), configs[i], error)) throw std::runtime_error(error);
    }
    std::vector<hostxcp::XcpSlaveConfig> slaves(xcpFiles_.size());
    for (size_t i = 0; i < xcpFiles_.size(); ++i) {
        std::string error;
        if (!hostxcp::loadXcpSlaveConfig(userPath(xcpFiles_[i]), slaves[i], error)) throw std::runtime_error(error);
    }
    for (hostbridge::ecu::EcuConfig& config : configs) {
        ecus_.push_back(std::make_unique<hostbridge::ecu::EcuNode>(std::move(config)));
        const hostbridge::ecu::EcuNode& e = *ecus_.back();
        const hostbridge::ecu::EcuAddressing& a = e.addressing();
        std::fprintf(stderr, "ECU \"%s\" on can%d: requests to %s (functional %s), answers on %s\n",
                     e.name().c_str(), a.channel, hexId(a.physicalId).c_str(), hexId(a.functionalId).c_str(),
                     hexId(a.responseId).c_str());
    }
    for (hostxcp::XcpSlaveConfig& config : slaves) {
        xcpSlaves_.push_back(std::make_unique<hostxcp::XcpSlaveNode>(std::move(config)));
        const hostxcp::XcpSlaveConfig& c = xcpSlaves_.back()->config();
        std::fprintf(stderr, "XCP slave \"%s\" on can%d: commands to %s%s, answers on %s\n", c.name.c_str(), c.channel,
                     hexId(c.masterId).c_str(),
                     c.broadcastId ? (" (broadcast " + hexId(*c.broadcastId) + ")").c_str() : "",
                     hexId(c.slaveId).c_str());
    }
}

bool BusPeers::startEcusOrReport(const std::vector<std::string>& files) {
    try {
        startEcus(files);  // every file is checked before any ECU joins the bus
        return true;
    } catch (const std::runtime_error& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return false;
    }
}

void BusPeers::startServer() {
    if (listen_.empty()) return;
    std::string error;
    if (!server_.start(options_, &error)) throw std::runtime_error("cannot serve the bus: " + error);
    std::fprintf(stderr, "serving the bus on %s\n", server_.address().c_str());
    std::fflush(stderr);
}

void BusPeers::stop() {
    server_.stop();
    ecus_.clear();
    xcpSlaves_.clear();
}

}  // namespace cli
