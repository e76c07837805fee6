// A workstation with its bus served on a free loopback port, driven line by line on stdin so
// a test written with other tools can play the applet's part:
//   send CH ID EXT HEX|-   transmit as the workstation          -> "sent RC"
//   rx                     frames receivers got since last rx   -> "CH ID EXT HEX|-" lines, "end"
//   clients                connected clients                    -> "clients N"
//   logged TEXT            whether a log line contains TEXT     -> "yes" / "no"
//   stream CH MS           frame 700 every half millisecond for MS ms, in the background
//                                                               -> "streaming"
//   streamed               waits for the stream's end           -> "done N" (frames sent)
// The first line out is "port N".
#include <atomic>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/HostBridge.h"
#include "host/quiet_receiver.h"
#include "host/bus/socketcand_server.h"
#include "host/log_interface.h"

namespace {

std::string hex(const unsigned char* data, int length) {
    if (length == 0) return "-";
    std::string text;
    char byte[3];
    for (int i = 0; i < length; ++i) {
        std::snprintf(byte, sizeof byte, "%02X", data[i]);
        text += byte;
    }
    return text;
}

}  // namespace

int main() {
    log_interface::setEcho(false);
    hostbridge::setChannelCount(2);
    if (device_control_interface::startup({}) != 0) return 1;

    // Received frames as an applet's receive handler gets them.
    struct Recorder : QuietReceiver {
        std::mutex mutex;
        std::vector<std::string> received;
        void onPackageRecv(const CanPackage* packages, int count) override {
            for (int i = 0; i < count; ++i) {
                if (packages[i].message == nullptr || packages[i].message->direction != 0) continue;
                const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(packages[i].message);
                if (h == nullptr) continue;
                char head[64];
                std::snprintf(head, sizeof head, "%d %X %d ", h->channel, static_cast<unsigned>(h->identifier),
                              h->extended ? 1 : 0);
                std::lock_guard<std::mutex> lock(mutex);
                received.push_back(head + hex(KELN::CanMsgAnalyse::getCanData(packages[i].message), h->length));
            }
        }
    } recorder;
    registReceiver(&recorder);
    std::mutex& mutex = recorder.mutex;
    std::vector<std::string>& received = recorder.received;

    hostbridge::SocketcandServer server;
    hostbridge::SocketcandServer::Options options;
    options.port = 0;
    std::string error;
    if (!server.start(options, &error)) {
        std::cerr << error << "\n";
        return 1;
    }
    std::cout << "port " << server.port() << std::endl;

    std::thread stream;
    std::atomic<int> streamed{0};
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream in(line);
        std::string command;
        in >> command;
        if (command == "send") {
            int channel = 0, extended = 0;
            std::string id, data;
            in >> channel >> id >> extended >> data;
            std::vector<unsigned char> bytes;
            for (size_t i = 0; data != "-" && i + 1 < data.size(); i += 2) {
                bytes.push_back(static_cast<unsigned char>(std::stoul(data.substr(i, 2), nullptr, 16)));
            }
            const int rc = data_flow_interface::sendCan(
                NETWORK_CAN, channel,
                hostbridge::makeCanFrame(0, channel, static_cast<uint32_t>(std::stoul(id, nullptr, 16)), extended != 0,
                                         bytes.size() > 8, false, bytes.data(), static_cast<int>(bytes.size())),
                PRIORITY_NORMAL);
            std::cout << "sent " << rc << std::endl;
        } else if (command == "rx") {
            // Node frames reach the workstation on the host's delivery thread: all of them first.
            hostbridge::waitForNodeDeliveries();
            std::vector<std::string> frames;
            {
                std::lock_guard<std::mutex> lock(mutex);
                frames.swap(received);
            }
            for (const auto& frame : frames) std::cout << frame << "\n";
            std::cout << "end" << std::endl;
        } else if (command == "clients") {
            std::cout << "clients " << server.clientCount() << std::endl;
        } else if (command == "logged") {
            std::string text;
            std::getline(in >> std::ws, text);
            bool found = false;
            for (const auto& record : log_interface::records()) {
                if (record.text.find(text) != std::string::npos) found = true;
            }
            std::cout << (found ? "yes" : "no") << std::endl;
        } else if (command == "stream" && !stream.joinable()) {
            int channel = 0, ms = 0;
            in >> channel >> ms;
            streamed = 0;
            stream = std::thread([channel, ms, &streamed] {
                const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
                while (std::chrono::steady_clock::now() < end) {
                    const unsigned char data[2] = {0x70, 0x00};
                    data_flow_interface::sendCan(NETWORK_CAN, channel,
                                                 hostbridge::makeCanFrame(0, channel, 0x700, false, false, false, data, 2),
                                                 PRIORITY_NORMAL);
                    ++streamed;
                    std::this_thread::sleep_for(std::chrono::microseconds(500));
                }
            });
            std::cout << "streaming" << std::endl;
        } else if (command == "streamed") {
            if (stream.joinable()) stream.join();
            std::cout << "done " << streamed.load() << std::endl;
        } else if (command == "quit") {
            break;
        }
    }
    if (stream.joinable()) stream.join();
    server.stop();
    device_control_interface::shutdown({});
    unRegistReceiver(&recorder);
    return 0;
}
