// The binary logging format: a "LOGG" file header of 144 bytes, then "LOBJ" objects, each its
// size padded by size % 4 bytes. The frames are objects inside log containers (type 10), whose
// data is zlib-compressed (method 2) or stored (method 0); an object may continue from one
// container into the next. Every length field is checked against what is really there, and a
// container's data is inflated into no more than the size it declares.

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <condition_variable>
#include <ctime>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <memory>

#include "apps/ruvo/log_format.h"
#include "platform/local_time.h"

namespace canlog {
namespace detail {

namespace {

constexpr size_t kFileHeaderSize = 144;
constexpr size_t kFileHeaderFields = 72;  // what the header holds before its padding
constexpr size_t kObjectHeaderBase = 16;  // "LOBJ", header size, header version, object size, type
constexpr size_t kObjectHeaderV1 = 32;
constexpr size_t kObjectHeaderV2 = 40;
constexpr size_t kContainerHeader = 16;   // method, 6 reserved, uncompressed size, 4 reserved
constexpr size_t kContainerTarget = 128 * 1024;
// Objects inside containers: a CAN object is under 150 bytes; larger ones we pass over.
constexpr size_t kMaxInnerObject = 1u << 20;
// Files from this size on inflate on a second thread.
constexpr uint64_t kInflateAside = 1u << 20;

constexpr uint32_t kCanMessage = 1;
constexpr uint32_t kCanError = 2;
constexpr uint32_t kLogContainer = 10;
constexpr uint32_t kCanErrorExt = 73;
constexpr uint32_t kCanMessage2 = 86;
constexpr uint32_t kCanFdMessage = 100;
constexpr uint32_t kCanFdMessage64 = 101;

constexpr uint32_t kExtendedFlag = 0x80000000;
// Start times before 1990 are written as no start at all, and stamps count from the epoch.
constexpr int64_t kEarliestStartMs = 631152000000;

uint16_t get16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t get32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}
uint64_t get64(const uint8_t* p) { return get32(p) | static_cast<uint64_t>(get32(p + 4)) << 32; }

void put16(std::vector<uint8_t>& out, uint32_t v) {
    out.push_back(static_cast<uint8_t>(v));
    out.push_back(static_cast<uint8_t>(v >> 8));
}
void put32(std::vector<uint8_t>& out, uint32_t v) {
    put16(out, v & 0xFFFF);
    put16(out, v >> 16);
}
void put64(std::vector<uint8_t>& out, uint64_t v) {
    put32(out, static_cast<uint32_t>(v));
    put32(out, static_cast<uint32_t>(v >> 32));
}

std::string position(uint64_t byte) { return "byte " + std::to_string(byte); }

// SYSTEMTIME (year, month, day of week, day, hour, minute, second, milliseconds) in local time,
// as milliseconds since the epoch; 0 for the all-zero "no start".
int64_t fromSystemTime(const uint8_t* p) {
    uint16_t v[8];
    for (int i = 0; i < 8; ++i) v[i] = get16(p + 2 * i);
    if (v[0] == 0) return 0;
    if (v[0] < 1970 || v[0] > 9999 || v[1] < 1 || v[1] > 12 || v[3] < 1 || v[3] > 31 || v[4] > 23 || v[5] > 59 ||
        v[6] > 60 || v[7] > 999) {
        throw BadRecord("bad start time in the file header");
    }
    std::tm tm{};
    tm.tm_year = v[0] - 1900;
    tm.tm_mon = v[1] - 1;
    tm.tm_mday = v[3];
    tm.tm_hour = v[4];
    tm.tm_min = v[5];
    tm.tm_sec = v[6];
    tm.tm_isdst = -1;
    const std::time_t seconds = std::mktime(&tm);
    if (seconds < 0) throw BadRecord("bad start time in the file header");
    return static_cast<int64_t>(seconds) * 1000 + v[7];
}

void putSystemTime(std::vector<uint8_t>& out, int64_t ms) {
    if (ms < kEarliestStartMs) {
        for (int i = 0; i < 8; ++i) put16(out, 0);
        return;
    }
    const std::time_t seconds = static_cast<std::time_t>(ms / 1000);
    std::tm tm{};
    platform::localTime(seconds, tm);
    const int fields[8] = {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_wday, tm.tm_mday,
                           tm.tm_hour,        tm.tm_min,     tm.tm_sec,  static_cast<int>(ms % 1000)};
    for (int v : fields) put16(out, static_cast<uint32_t>(v));
}

// Container data and what is left of it: grown without zeroing, as inflate fills it anyway.
class Bytes {
public:
    Bytes() = default;
    Bytes(Bytes&& other) noexcept { *this = std::move(other); }
    Bytes& operator=(Bytes&& other) noexcept {
        data_ = std::move(other.data_);
        size_ = other.size_;
        capacity_ = other.capacity_;
        other.size_ = other.capacity_ = 0;
        return *this;
    }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    uint8_t* data() { return data_.get(); }
    // Keeps the contents up to `n`; what lies beyond them is unset.
    void resize(size_t n) {
        if (n > capacity_) {
            const size_t capacity = std::max(n, capacity_ * 2);
            std::unique_ptr<uint8_t[]> grown(new uint8_t[capacity]);
            if (size_ > 0) std::memcpy(grown.get(), data_.get(), size_);
            data_ = std::move(grown);
            capacity_ = capacity;
        }
        size_ = n;
    }
    void append(const uint8_t* bytes, size_t n) {
        const size_t at = size_;
        resize(size_ + n);
        if (n > 0) std::memcpy(data_.get() + at, bytes, n);
    }
    void dropFront(size_t n) {
        if (n < size_) std::memmove(data_.get(), data_.get() + n, size_ - n);
        size_ = n < size_ ? size_ - n : 0;
    }

private:
    std::unique_ptr<uint8_t[]> data_;
    size_t size_ = 0, capacity_ = 0;
};

class BlfReader {
public:
    BlfReader(std::istream& in, const std::string& name, const RecordSink& sink) : in_(in), name_(name), sink_(sink) {
        std::memset(&zs_, 0, sizeof(zs_));
        if (inflateInit(&zs_) != Z_OK) throw std::runtime_error("cannot read " + name + ": zlib failed to start");
    }
    ~BlfReader() { inflateEnd(&zs_); }
    BlfReader(const BlfReader&) = delete;
    BlfReader& operator=(const BlfReader&) = delete;

    void run() {
        uint8_t header[kFileHeaderFields];
        if (readUpTo(header, sizeof(header)) != sizeof(header) || std::memcmp(header, "LOGG", 4) != 0) {
            fail(0, "not a BLF log (no LOGG header)");
        }
        const uint32_t headerSize = get32(header + 4);
        if (headerSize < kFileHeaderFields || headerSize > 4096) {
            fail(4, "file header size " + std::to_string(headerSize) + " out of range 72..4096");
        }
        try {
            startUs_ = fromSystemTime(header + 40) * 1000;
        } catch (const BadRecord& e) {
            fail(40, e.what());
        }
        sink_.expect(get32(header + 32));  // the count of objects
        skip(headerSize - kFileHeaderFields, 0, "file header");
        offset_ = headerSize;
        // A large log inflates its containers on a second thread while this one takes the
        // objects out of them.
        const auto here = in_.tellg();
        uint64_t size = 0;
        if (here != std::istream::pos_type(-1) && in_.seekg(0, std::ios::end)) {
            size = static_cast<uint64_t>(in_.tellg() - here);
            in_.seekg(here);
        }
        in_.clear();
        if (size >= kInflateAside) {
            threaded();
        } else {
            uint64_t at = 0;
            while (nextContainer(pending_, at)) {
                lastContainer_ = at;
                objects(at, pending_);
            }
        }
        if (!pending_.empty()) {
            bool padding = pending_.size() < 4;
            for (size_t i = 0; i < pending_.size(); ++i) padding = padding && pending_.data()[i] == 0;
            if (!padding) {
                fail(lastContainer_, "the log ends inside an object (" + std::to_string(pending_.size()) + " bytes of it)");
            }
        }
    }

private:
    [[noreturn]] void fail(uint64_t at, const std::string& reason) { throw LogError(name_, position(at), reason); }

    // Reads the file's objects up to the next log container and appends its data to `into`;
    // false at the end of the file. `at` is where the container begins.
    bool nextContainer(Bytes& into, uint64_t& at) {
        for (;;) {
            at = offset_;
            uint8_t base[kObjectHeaderBase];
            const size_t got = readUpTo(base, sizeof(base));
            if (got == 0) return false;
            if (got < sizeof(base)) fail(at, "truncated object header (" + std::to_string(got) + " of 16 bytes)");
            if (std::memcmp(base, "LOBJ", 4) != 0) fail(at, "expected an object (LOBJ), found " + shown(std::string(reinterpret_cast<char*>(base), 4)));
            const uint32_t size = get32(base + 8);
            const uint32_t type = get32(base + 12);
            if (size < kObjectHeaderBase) fail(at + 8, "object size " + std::to_string(size) + " is smaller than its header");
            if (type == kLogContainer) container(at, size, into);
            if (type != kLogContainer) skip(size - kObjectHeaderBase, at, "object");
            // Padding of size % 4 bytes, which the last object may leave out.
            uint8_t pad[4];
            readUpTo(pad, size % 4);
            if (type == kLogContainer) return true;
        }
    }

    // nextContainer on a second thread, at most two containers ahead; its errors come here in
    // file order, after the objects of the containers before them.
    void threaded() {
        struct Item {
            uint64_t at = 0;
            Bytes data;
            bool end = false;
            std::exception_ptr error;
        };
        std::mutex mutex;
        std::condition_variable changed;
        std::deque<Item> ready;
        std::vector<Bytes> spare;
        bool stop = false;
        std::thread inflater([&] {
            for (;;) {
                Item item;
                {
                    std::unique_lock<std::mutex> lock(mutex);
                    changed.wait(lock, [&] { return stop || ready.size() < 2; });
                    if (stop) return;
                    if (!spare.empty()) {
                        item.data = std::move(spare.back());
                        spare.pop_back();
                    }
                }
                item.data.resize(0);
                try {
                    item.end = !nextContainer(item.data, item.at);
                } catch (...) {
                    item.error = std::current_exception();
                }
                const bool last = item.end || item.error;
                {
                    std::lock_guard<std::mutex> lock(mutex);
                    ready.push_back(std::move(item));
                }
                changed.notify_all();
                if (last) return;
            }
        });
        const auto join = [&] {
            {
                std::lock_guard<std::mutex> lock(mutex);
                stop = true;
            }
            changed.notify_all();
            inflater.join();
        };
        try {
            for (;;) {
                Item item;
                {
                    std::unique_lock<std::mutex> lock(mutex);
                    changed.wait(lock, [&] { return !ready.empty(); });
                    item = std::move(ready.front());
                    ready.pop_front();
                }
                changed.notify_all();
                if (item.error) std::rethrow_exception(item.error);
                if (item.end) break;
                lastContainer_ = item.at;
                if (pending_.empty()) {  // no object continues into this container
                    objects(item.at, item.data);
                    pending_.append(item.data.data(), item.data.size());
                } else {
                    pending_.append(item.data.data(), item.data.size());
                    objects(item.at, pending_);
                }
                std::lock_guard<std::mutex> lock(mutex);
                spare.push_back(std::move(item.data));
            }
        } catch (...) {
            join();
            throw;
        }
        join();
    }

    size_t readUpTo(uint8_t* out, size_t n) {
        in_.read(reinterpret_cast<char*>(out), static_cast<std::streamsize>(n));
        const size_t got = static_cast<size_t>(in_.gcount());
        if (in_.bad()) throw std::runtime_error("cannot read " + name_);
        offset_ += got;
        return got;
    }

    void skip(uint64_t n, uint64_t at, const char* what) {
        while (n > 0) {
            const size_t chunk = static_cast<size_t>(std::min<uint64_t>(n, sizeof(chunk_)));
            if (readUpTo(chunk_, chunk) != chunk) fail(at, std::string("truncated ") + what);
            n -= chunk;
        }
    }

    void container(uint64_t at, uint32_t size, Bytes& into) {
        if (size < kObjectHeaderBase + kContainerHeader) fail(at + 8, "log container of " + std::to_string(size) + " bytes is smaller than its header");
        uint8_t header[kContainerHeader];
        if (readUpTo(header, sizeof(header)) != sizeof(header)) fail(at, "truncated log container header");
        const uint16_t method = get16(header);
        const uint32_t declared = get32(header + 8);
        uint64_t packed = size - kObjectHeaderBase - kContainerHeader;
        if (declared > kMaxContainerSize) {
            fail(at + 24, "log container declares " + std::to_string(declared) + " bytes (at most " +
                              std::to_string(kMaxContainerSize) + ")");
        }
        const size_t base = into.size();
        if (method == 0) {
            if (packed != declared) fail(at + 24, "stored log container declares " + std::to_string(declared) + " bytes but holds " + std::to_string(packed));
            into.resize(base + declared);
            if (readUpTo(into.data() + base, declared) != declared) fail(at, "truncated log container");
        } else if (method == 2) {
            inflate(at, into, base, declared, packed);
        } else {
            fail(at + 16, "unknown compression method " + std::to_string(method));
        }
    }

    // Inflates the container's `packed` bytes after into[base]. The buffer grows with what
    // the data really inflates to, up to the size the container declares: data that inflates
    // beyond it (a lying size or a bomb) is refused without holding more.
    void inflate(uint64_t at, Bytes& into, size_t base, uint32_t declared, uint64_t packed) {
        inflateReset(&zs_);
        zs_.avail_in = 0;
        size_t room = std::min<size_t>(declared, 64 * 1024);
        size_t produced = 0;
        into.resize(base + room);
        const auto check = [&](int status) {
            if (status == Z_STREAM_END || status == Z_OK) return;
            if (status == Z_BUF_ERROR && zs_.avail_in == 0) return;  // needs more input
            fail(at, std::string("bad compressed data in the log container (") + (zs_.msg ? zs_.msg : "zlib error") + ")");
        };
        for (;;) {
            if (zs_.avail_in == 0) {
                if (packed == 0) fail(at, "truncated compressed data in the log container");
                const size_t chunk = static_cast<size_t>(std::min<uint64_t>(packed, sizeof(chunk_)));
                if (readUpTo(chunk_, chunk) != chunk) fail(at, "truncated log container");
                packed -= chunk;
                zs_.next_in = chunk_;
                zs_.avail_in = static_cast<uInt>(chunk);
            }
            if (produced == room && room == declared) {
                // Full: only the end of the stream may follow.
                uint8_t probe = 0;
                zs_.next_out = &probe;
                zs_.avail_out = 1;
                const int status = ::inflate(&zs_, Z_NO_FLUSH);
                if (zs_.avail_out == 0) {
                    fail(at, "log container inflates to more than the " + std::to_string(declared) + " bytes it declares");
                }
                check(status);
                if (status == Z_STREAM_END) break;
                continue;
            }
            if (produced == room) {
                room = std::min<size_t>(declared, room * 2);
                into.resize(base + room);
            }
            zs_.next_out = into.data() + base + produced;
            zs_.avail_out = static_cast<uInt>(room - produced);
            const int status = ::inflate(&zs_, Z_NO_FLUSH);
            produced = room - zs_.avail_out;
            check(status);
            if (status == Z_STREAM_END) break;
        }
        if (produced != declared) {
            fail(at, "log container inflates to " + std::to_string(produced) + " bytes, not the " + std::to_string(declared) +
                         " it declares");
        }
        if (zs_.avail_in != 0 || packed != 0) fail(at, "data after the end of the compressed stream in the log container");
    }

    // The whole objects in `data`, which are dropped from it; what is left continues in the
    // next container.
    void objects(uint64_t at, Bytes& data) {
        if (padOwed_ > 0) {
            const size_t n = std::min(padOwed_, data.size());
            data.dropFront(n);
            padOwed_ -= n;
        }
        size_t pos = 0;
        const size_t size = data.size();
        while (size - pos >= kObjectHeaderBase) {
            const uint8_t* p = data.data() + pos;
            if (std::memcmp(p, "LOBJ", 4) != 0) fail(at, "object " + std::to_string(count_ + 1) + " in the log container: expected LOBJ");
            const uint16_t headerSize = get16(p + 4);
            const uint16_t version = get16(p + 6);
            const uint32_t objectSize = get32(p + 8);
            const uint32_t type = get32(p + 12);
            if (objectSize < kObjectHeaderBase || headerSize < kObjectHeaderBase || headerSize > objectSize) {
                fail(at, "object " + std::to_string(count_ + 1) + ": sizes out of range (header " + std::to_string(headerSize) +
                             ", object " + std::to_string(objectSize) + ")");
            }
            if (objectSize > kMaxInnerObject) {
                fail(at, "object " + std::to_string(count_ + 1) + " of " + std::to_string(objectSize) + " bytes (at most " +
                             std::to_string(kMaxInnerObject) + ")");
            }
            const size_t whole = objectSize + objectSize % 4;
            if (size - pos < objectSize) break;
            ++count_;
            try {
                object(p, headerSize, version, objectSize, type);
            } catch (const BadRecord& e) {
                fail(at, "object " + std::to_string(count_) + ": " + e.what());
            }
            if (size - pos < whole) {  // its padding is in the next container
                padOwed_ = whole - (size - pos);
                pos = size;
                break;
            }
            pos += whole;
        }
        data.dropFront(pos);
    }

    void object(const uint8_t* p, uint16_t headerSize, uint16_t version, uint32_t objectSize, uint32_t type) {
        if (type != kCanMessage && type != kCanMessage2 && type != kCanFdMessage && type != kCanFdMessage64 &&
            type != kCanErrorExt && type != kCanError) {
            return;  // not a CAN frame: markers, texts, other buses
        }
        const size_t needed = version == 1 ? kObjectHeaderV1 : version == 2 ? kObjectHeaderV2 : 0;
        if (needed == 0) throw BadRecord("unknown object header version " + std::to_string(version));
        if (headerSize < needed) throw BadRecord("object header of " + std::to_string(headerSize) + " bytes, expected " + std::to_string(needed));
        const uint32_t flags = get32(p + 16);
        const uint64_t stamp = get64(p + 24);
        // 1: tens of microseconds; 2 (and anything else): nanoseconds.
        if (stamp > (static_cast<uint64_t>(1) << (flags == 1 ? 58 : 62))) throw BadRecord("time stamp too large");
        const uint64_t us = flags == 1 ? stamp * 10 : (stamp + 500) / 1000;
        if (static_cast<double>(us) + static_cast<double>(startUs_) > kMaxTime * 1e6) throw BadRecord("time stamp too large");
        const uint8_t* body = p + headerSize;
        const size_t bodySize = objectSize - headerSize;
        Frame f;
        f.time = static_cast<double>(startUs_ + static_cast<int64_t>(us)) / 1e6;
        const auto need = [&](size_t n) {
            if (bodySize < n) throw BadRecord("frame object of " + std::to_string(bodySize) + " bytes, expected " + std::to_string(n));
        };
        const auto channel = [&](unsigned n) {
            if (n < 1 || n > static_cast<unsigned>(kMaxChannel) + 1) {
                throw BadRecord("channel " + std::to_string(n) + " out of range 1.." + std::to_string(kMaxChannel + 1));
            }
            f.channel = channelName(static_cast<int>(n) - 1);
        };
        const auto setId = [&](uint32_t raw) {
            f.extended = (raw & kExtendedFlag) != 0;
            f.id = raw & ~kExtendedFlag;
        };
        if (type == kCanMessage || type == kCanMessage2) {
            need(16);
            channel(get16(body));
            const uint8_t frameFlags = body[2];
            const uint8_t dlc = body[3];
            setId(get32(body + 4));
            f.tx = (frameFlags & 1) != 0;
            if (dlc > 15) throw BadRecord("length code " + std::to_string(dlc) + " out of range 0..15");
            if ((frameFlags & 0x80) != 0) {
                f.remote = true;
                f.remoteLength = dlc > 8 ? 8 : dlc;
            } else {
                f.data.assign(body + 8, body + 8 + (dlc > 8 ? 8 : dlc));
            }
        } else if (type == kCanFdMessage) {
            need(84);
            channel(get16(body));
            const uint8_t frameFlags = body[2];
            const uint8_t dlc = body[3];
            setId(get32(body + 4));
            const uint8_t fdFlags = body[13];
            const uint8_t valid = body[14];
            f.tx = (frameFlags & 1) != 0;
            f.fd = (fdFlags & 1) != 0;
            if (dlc > 15) throw BadRecord("length code " + std::to_string(dlc) + " out of range 0..15");
            if (valid > 64) throw BadRecord(std::to_string(valid) + " data bytes (at most 64)");
            if ((frameFlags & 0x80) != 0 && !f.fd) {
                f.remote = true;
                f.remoteLength = dlc > 8 ? 8 : dlc;
            } else {
                f.brs = f.fd && (fdFlags & 2) != 0;
                f.esi = f.fd && (fdFlags & 4) != 0;
                f.data.assign(body + 20, body + 20 + valid);
            }
        } else if (type == kCanFdMessage64) {
            need(40);
            channel(body[0]);
            const uint8_t dlc = body[1];
            const uint8_t valid = body[2];
            setId(get32(body + 4));
            const uint32_t fdFlags = get32(body + 12);
            f.tx = body[34] != 0;
            f.fd = (fdFlags & 0x1000) != 0;
            if (dlc > 15) throw BadRecord("length code " + std::to_string(dlc) + " out of range 0..15");
            if (valid > 64) throw BadRecord(std::to_string(valid) + " data bytes (at most 64)");
            if ((fdFlags & 0x10) != 0 && !f.fd) {
                f.remote = true;
                f.remoteLength = dlc > 8 ? 8 : dlc;
            } else {
                need(40 + valid);
                f.brs = f.fd && (fdFlags & 0x2000) != 0;
                f.esi = f.fd && (fdFlags & 0x4000) != 0;
                f.data.assign(body + 40, body + 40 + valid);
            }
        } else if (type == kCanErrorExt) {
            need(32);
            channel(get16(body));
            const uint8_t dlc = body[10];
            setId(get32(body + 16));
            f.error = true;
            f.data.assign(body + 24, body + 24 + (dlc > 8 ? 8 : dlc));
        } else {  // kCanError: channel and length only
            need(4);
            channel(get16(body));
            f.error = true;
        }
        checkFrame(f);
        sink_.add(std::move(f));
    }

    std::istream& in_;
    const std::string& name_;
    const RecordSink& sink_;
    z_stream zs_;
    uint64_t offset_ = 0;
    uint64_t lastContainer_ = 0;
    int64_t startUs_ = 0;
    size_t count_ = 0;
    size_t padOwed_ = 0;
    Bytes pending_;
    uint8_t chunk_[64 * 1024];
};

class BlfWriter : public FormatWriter {
public:
    BlfWriter(std::FILE* out, double earliest) : out_(out) {
        if (earliest >= 0) begin(earliest);
        const std::vector<uint8_t> placeholder(kFileHeaderSize, 0);
        put(placeholder.data(), placeholder.size());
    }
    void write(const Frame& f) override {
        if (!begun_) begin(f.time);
        const int64_t us = microseconds(f.time);
        if (us < startUs_) throw std::runtime_error("frame at " + std::to_string(f.time) + " s is before the start of the log");
        if (us - startUs_ >= (static_cast<int64_t>(1) << 62) / 1000) {
            throw std::runtime_error("frame at " + std::to_string(f.time) + " s is too long after the start of the log");
        }
        if (us > lastUs_) lastUs_ = us;
        const uint32_t id = f.id | (f.extended ? kExtendedFlag : 0);
        const uint16_t channel = static_cast<uint16_t>(channelNumber(f.channel) + 1);
        body_.clear();
        uint32_t type = kCanMessage;
        if (f.error) {
            type = kCanErrorExt;
            put16(body_, channel);
            put16(body_, 0);  // length
            put32(body_, 0);  // flags
            body_.push_back(0);  // error code
            body_.push_back(0);  // position
            body_.push_back(static_cast<uint8_t>(f.data.size()));
            body_.push_back(0);
            put32(body_, 0);  // frame length
            put32(body_, id);
            put16(body_, 0);  // extended flags
            put16(body_, 0);
            appendData(8, f);
        } else if (f.fd) {
            type = kCanFdMessage;
            put16(body_, channel);
            body_.push_back(f.tx ? 1 : 0);
            body_.push_back(static_cast<uint8_t>(fdCode(f.data.size())));
            put32(body_, id);
            put32(body_, 0);  // frame length
            body_.push_back(0);  // bit count
            body_.push_back(static_cast<uint8_t>(1 | (f.brs ? 2 : 0) | (f.esi ? 4 : 0)));
            body_.push_back(static_cast<uint8_t>(f.data.size()));
            body_.insert(body_.end(), 5, 0);
            appendData(64, f);
        } else {
            put16(body_, channel);
            body_.push_back(static_cast<uint8_t>((f.tx ? 1 : 0) | (f.remote ? 0x80 : 0)));
            body_.push_back(static_cast<uint8_t>(f.remote ? f.remoteLength : f.data.size()));
            put32(body_, id);
            if (f.remote) {
                body_.insert(body_.end(), 8, 0);
            } else {
                appendData(8, f);
            }
        }
        const uint32_t size = static_cast<uint32_t>(kObjectHeaderV1 + body_.size());
        container_.insert(container_.end(), {'L', 'O', 'B', 'J'});
        put16(container_, kObjectHeaderV1);
        put16(container_, 1);
        put32(container_, size);
        put32(container_, type);
        put32(container_, 2);  // stamps in nanoseconds
        put16(container_, 0);  // client index
        put16(container_, 0);  // object version
        put64(container_, static_cast<uint64_t>(us - startUs_) * 1000);
        container_.insert(container_.end(), body_.begin(), body_.end());
        container_.insert(container_.end(), size % 4, 0);
        ++objects_;
        if (container_.size() >= kContainerTarget) flush();
    }
    void finish() override {
        flush();
        std::vector<uint8_t> header;
        header.insert(header.end(), {'L', 'O', 'G', 'G'});
        put32(header, kFileHeaderSize);
        // Application 0 (none named), version 0.0.0; format version 2.6.8.1.
        header.insert(header.end(), {0, 0, 0, 0, 2, 6, 8, 1});
        put64(header, written_);
        put64(header, uncompressed_);
        put32(header, objects_);
        put32(header, 0);
        putSystemTime(header, startMs_);
        putSystemTime(header, begun_ ? lastUs_ / 1000 : 0);
        header.resize(kFileHeaderSize, 0);
        if (std::fseek(out_, 0, SEEK_SET) != 0) throw std::runtime_error(std::strerror(errno));
        put(header.data(), header.size());
        if (std::fseek(out_, 0, SEEK_END) != 0) throw std::runtime_error(std::strerror(errno));
    }

private:
    void begin(double earliest) {
        begun_ = true;
        startMs_ = startMilliseconds(earliest);
        // The header holds the start to the millisecond; the objects count from it.
        startUs_ = startMs_ < kEarliestStartMs ? 0 : startMs_ * 1000;
        if (startMs_ < kEarliestStartMs) startMs_ = 0;
        lastUs_ = startUs_;
    }
    void appendData(size_t room, const Frame& f) {
        body_.insert(body_.end(), f.data.begin(), f.data.end());
        body_.insert(body_.end(), room - f.data.size(), 0);
    }
    void put(const uint8_t* data, size_t n) {
        if (std::fwrite(data, 1, n, out_) != n) throw std::runtime_error(std::strerror(errno));
        written_ += n;
    }
    void flush() {
        if (container_.empty()) return;
        uLongf packedSize = compressBound(static_cast<uLong>(container_.size()));
        packed_.resize(packedSize);
        if (compress2(packed_.data(), &packedSize, container_.data(), static_cast<uLong>(container_.size()), 6) != Z_OK) {
            throw std::runtime_error("compression failed");
        }
        std::vector<uint8_t> header;
        const uint32_t size = static_cast<uint32_t>(kObjectHeaderBase + kContainerHeader + packedSize);
        header.insert(header.end(), {'L', 'O', 'B', 'J'});
        put16(header, kObjectHeaderBase);
        put16(header, 1);
        put32(header, size);
        put32(header, kLogContainer);
        put16(header, 2);  // zlib
        header.insert(header.end(), 6, 0);
        put32(header, static_cast<uint32_t>(container_.size()));
        put32(header, 0);
        put(header.data(), header.size());
        put(packed_.data(), packedSize);
        const uint8_t zeros[4] = {0, 0, 0, 0};
        put(zeros, size % 4);
        uncompressed_ += kObjectHeaderBase + kContainerHeader + container_.size();
        container_.clear();
        if (written_ > 0 && std::fflush(out_) != 0) throw std::runtime_error(std::strerror(errno));
    }

    std::FILE* out_;
    bool begun_ = false;
    int64_t startMs_ = 0;
    int64_t startUs_ = 0;
    int64_t lastUs_ = 0;
    uint64_t written_ = 0;
    uint64_t uncompressed_ = kFileHeaderSize;
    uint32_t objects_ = 0;
    std::vector<uint8_t> body_, container_, packed_;
};

}  // namespace

void readBlf(std::istream& in, const std::string& shownName, const RecordSink& sink) {
    BlfReader reader(in, shownName, sink);
    reader.run();
}

std::unique_ptr<FormatWriter> blfWriter(std::FILE* out, double earliest) {
    return std::make_unique<BlfWriter>(out, earliest);
}

}  // namespace detail
}  // namespace canlog
