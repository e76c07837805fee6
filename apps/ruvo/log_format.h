#pragma once
// What each CAN log format supplies to can_log.cpp, and the checks they share.

#include <cstdio>
#include <functional>
#include <istream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/ruvo/can_log.h"

namespace canlog {

// Why a record was refused; the format's reader adds file and position.
struct BadRecord : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Writes one format to an open file; raises std::runtime_error.
class FormatWriter {
public:
    virtual ~FormatWriter() = default;
    virtual void write(const Frame& frame) = 0;
    // The trailer; the file is still open.
    virtual void finish() = 0;
};

namespace detail {

// Takes every record in file order, error frames included.
struct RecordSink {
    std::function<void(Frame&&)> add;
    // How many records the file says it holds: a hint, which the taker bounds by the file's size.
    std::function<void(size_t)> expect;
};

// Each raises LogError for the first malformed record, std::runtime_error when reading fails.
void readCandump(std::istream& in, const std::string& shownName, const RecordSink& sink);
void readAsc(std::istream& in, const std::string& shownName, const RecordSink& sink);
void readBlf(std::istream& in, const std::string& shownName, const RecordSink& sink);

std::unique_ptr<FormatWriter> candumpWriter(std::FILE* out, bool flushEachFrame);
std::unique_ptr<FormatWriter> ascWriter(std::FILE* out, bool flushEachFrame, double earliest);
std::unique_ptr<FormatWriter> blfWriter(std::FILE* out, double earliest);

std::string candumpLine(const Frame& f);
std::string ascLine(const Frame& f, double start);

// A piece of a record for a message: quoted, control and non-ASCII bytes escaped, cut short,
// so that a hostile file cannot write escape sequences to the terminal.
std::string shown(const std::string& text);
bool validFdLength(size_t n);
// The length a CAN FD length code stands for, and back (rounded up to the next valid length).
size_t fdLength(unsigned dlc);
unsigned fdCode(size_t length);
// Raises BadRecord unless the frame obeys the bus's rules (id range, lengths, flags).
void checkFrame(const Frame& f);
// "can3" for channel 3: the name ASC and BLF channels read back as.
const std::string& channelName(int number);
// Whole microseconds of a time stamp, and the ASC and BLF start (whole milliseconds, as their
// headers hold it) for a log whose earliest frame is at `earliest`.
int64_t microseconds(double seconds);
int64_t startMilliseconds(double earliest);

// Line reader over a stream buffer: at most `limit` characters a line, refusing a longer line
// as soon as it passes the limit, so that a hostile file is never held whole.
class LineReader {
public:
    LineReader(std::istream& in, size_t limit) : in_(in), limit_(limit), buffer_(kChunk + limit + 1) {}
    // False at the end of input; raises BadRecord for a line over the limit. `line` is
    // stripped of its line end and trailing blanks.
    bool next(std::string& line);
    size_t number() const { return number_; }

private:
    static constexpr size_t kChunk = 64 * 1024;
    std::istream& in_;
    size_t limit_;
    size_t number_ = 0;
    std::vector<char> buffer_;
    size_t begin_ = 0, end_ = 0;
    bool eof_ = false;
};

}  // namespace detail
}  // namespace canlog
