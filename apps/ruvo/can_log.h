#pragma once
// CAN log files, read and written by format, chosen by the file's suffix.

#include <cstdint>
#include <string>
#include <vector>

namespace canlog {

struct Frame {
    double time = 0;       // seconds
    std::string channel;   // interface name as the log writes it ("can0")
    uint32_t id = 0;
    bool extended = false;
    bool remote = false;
    bool fd = false;
    bool brs = false;
    bool esi = false;
    std::vector<uint8_t> data;
};

struct ReadResult {
    std::vector<Frame> frames;
    size_t skipped = 0;  // error frames and lines that carry no frame
};

// Raises std::runtime_error naming the file and line for a malformed line, and for a suffix
// no format is registered for.
ReadResult read(const std::string& path);
void write(const std::string& path, const std::vector<Frame>& frames);
std::string formatLine(const std::string& suffix, const Frame& frame);
// The suffixes with a registered format.
std::vector<std::string> formats();

// "can1" -> 1: the trailing number of an interface name, 0 when it has none.
int channelNumber(const std::string& interfaceName);

}  // namespace canlog
