#pragma once
// CAN log files, read and written by format, chosen by the file's suffix.
//
// candump lines ("(1700000000.000250) can0 123#1122", "… 18DAF110##1AABB" for CAN FD with its
// flags nibble, "… 123#R" or "123#R5" for a remote frame, optionally followed by "R" or "T" as
// python-can writes them) are checked in full: a log is hostile input, and a frame that a
// reader only half understood would reach the applets as something the bus never carried.

#include <cstdint>
#include <istream>
#include <stdexcept>
#include <string>
#include <vector>

namespace canlog {

// Channel numbers a log may name: the trailing number of an interface name ("can63").
constexpr int kMaxChannel = 63;
// Latest time stamp a log may carry, in seconds (the year 5138); its microseconds fit in 64 bits.
constexpr double kMaxTime = 1e11;
// Longer lines are refused before they are held in memory; a candump line is under 200.
constexpr size_t kMaxLineLength = 512;

struct Frame {
    double time = 0;       // seconds
    std::string channel;   // interface name as the log writes it ("can0")
    uint32_t id = 0;
    bool extended = false;
    bool remote = false;
    bool fd = false;
    bool brs = false;
    bool esi = false;
    uint8_t remoteLength = 0;  // the length a remote frame asks for ("123#R5"); it carries no data
    std::vector<uint8_t> data;
};

struct ReadResult {
    std::vector<Frame> frames;  // in file order
    size_t skipped = 0;         // error frames, which carry no frame for an applet
    size_t outOfOrder = 0;      // frames stamped earlier than a frame above them
};

// A malformed line; what() is "FILE:LINE: reason".
struct LogError : std::runtime_error {
    LogError(const std::string& file, size_t line, const std::string& reason);
    std::string file;
    size_t line;
    std::string reason;
};

// Raises LogError for the first malformed line, std::runtime_error for a file that cannot be
// read or a suffix no format is registered for. `shownName` names the file in messages (the
// path as the user typed it); empty means `path`.
ReadResult read(const std::string& path, const std::string& shownName = std::string());
// The same for text already open; `suffix` chooses the format (".log").
ReadResult read(std::istream& in, const std::string& suffix, const std::string& shownName);
void write(const std::string& path, const std::vector<Frame>& frames);
std::string formatLine(const std::string& suffix, const Frame& frame);
// The suffix of `path` if a format is registered for it; raises std::runtime_error otherwise.
std::string formatOf(const std::string& path);
// The suffixes with a registered format.
std::vector<std::string> formats();

// "can1" -> 1: the trailing number of an interface name, 0 when it has none or it is too large
// to be a channel (the reader refuses such names).
int channelNumber(const std::string& interfaceName);

}  // namespace canlog
