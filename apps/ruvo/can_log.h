#pragma once
// CAN log files, read and written by format, chosen by the file's suffix in any case:
//   ".log"  candump text: "(1700000000.000250) can0 123#1122", "… 18DAF110##1AABB" for CAN FD
//           with its flags nibble, "… 123#R" or "123#R5" for a remote frame, optionally followed
//           by "R" or "T" (the direction, as python-can writes it);
//   ".asc"  the ASCII trace text with "date", "base hex" and "Begin Triggerblock" lines, classic
//           lines ("0.000250 1  123  Rx   d 2 11 22"), "CANFD" lines and "ErrorFrame" lines;
//   ".blf"  the binary logging format: a "LOGG" header and "LOBJ" objects, the frames inside
//           zlib-compressed log containers.
// Every reader checks its input in full: a log is hostile input, and a frame that a reader only
// half understood would reach the applets as something the bus never carried.

#include <cstdint>
#include <cstdio>
#include <istream>
#include <memory>
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
// The same for ASC lines, whose CAN FD lines carry timing columns besides 64 data bytes.
constexpr size_t kMaxAscLineLength = 1024;
// Largest uncompressed BLF log container accepted (writers use 128 KiB): a container that
// claims or inflates to more is refused, so a hostile file cannot make the reader hold more.
constexpr size_t kMaxContainerSize = 16u << 20;

struct Frame {
    double time = 0;       // seconds
    std::string channel;   // interface name as the log writes it ("can0"); ASC and BLF number channels
    uint32_t id = 0;
    bool extended = false;
    bool remote = false;
    bool fd = false;
    bool brs = false;
    bool esi = false;
    bool tx = false;     // sent by the logging node rather than received
    bool error = false;  // an error frame: no frame for an applet, kept only on request
    uint8_t remoteLength = 0;  // the length a remote frame asks for ("123#R5"); it carries no data
    std::vector<uint8_t> data;
};

struct ReadResult {
    std::vector<Frame> frames;  // in file order
    size_t skipped = 0;         // error frames, which carry no frame for an applet
    size_t outOfOrder = 0;      // frames stamped earlier than a frame above them
};

// A malformed record; what() is "FILE:POSITION: reason", POSITION being the line number in a
// text log ("12") or the byte offset in a binary one ("byte 4096").
struct LogError : std::runtime_error {
    LogError(const std::string& file, size_t line, const std::string& reason);
    LogError(const std::string& file, const std::string& position, const std::string& reason);
    std::string file;
    size_t line;  // 0 for a binary log
    std::string position;
    std::string reason;
};

// Raises LogError for the first malformed record, std::runtime_error for a file that cannot be
// read or a suffix no format is registered for. `shownName` names the file in messages (the
// path as the user typed it); empty means `path`. Error frames are counted in `skipped`, or
// kept in `frames` with `error` set when `keepErrorFrames` says so.
ReadResult read(const std::string& path, const std::string& shownName = std::string(), bool keepErrorFrames = false);
// The same for a stream already open; `suffix` chooses the format (".log", ".asc", ".blf").
ReadResult read(std::istream& in, const std::string& suffix, const std::string& shownName,
                bool keepErrorFrames = false);

// Writes the frames whole: into a file beside `path` that replaces it only once complete, so
// that a failure leaves no truncated log. Raises std::runtime_error.
void write(const std::string& path, const std::vector<Frame>& frames);

// A log written frame by frame, as the frames come.
class FormatWriter;
class Writer {
public:
    // Creates `path` in the format of its suffix. `flushEachFrame` hands every frame of a text
    // log to the system at once, so that a reader sees them live and an interrupted run leaves
    // whole lines (a BLF log goes out a container at a time). `earliest`, when known, is the
    // earliest time stamp to come: ASC and BLF stamp frames relative to a start, and a frame
    // before it cannot be written.
    explicit Writer(const std::string& path, bool flushEachFrame = false, double earliest = -1);
    // The format of `suffix` to a stream the caller owns, such as stdout; BLF needs one that
    // can seek (its header is written last).
    Writer(std::FILE* out, const std::string& suffix, bool flushEachFrame);
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    // Raise std::runtime_error (a write that failed, a frame the format cannot hold).
    void write(const Frame& frame);
    // Ends the log (the ASC trailer, BLF's last container and its header) and closes the file.
    void finish();

private:
    std::unique_ptr<FormatWriter> format_;
    std::FILE* file_ = nullptr;
    bool owned_ = false;
    std::string name_;
};

// One line of a text format (".log", ".asc"); raises std::runtime_error for BLF.
std::string formatLine(const std::string& suffix, const Frame& frame);
// The registered suffix of `path`, in lower case, if a format is registered for it; raises
// std::runtime_error otherwise.
std::string formatOf(const std::string& path);
// The suffixes with a registered format.
std::vector<std::string> formats();

// "can1" -> 1: the trailing number of an interface name, 0 when it has none or it is too large
// to be a channel (the reader refuses such names).
int channelNumber(const std::string& interfaceName);

}  // namespace canlog
