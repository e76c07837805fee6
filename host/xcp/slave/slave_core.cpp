#include "host/xcp/slave/slave_core.h"

#include <algorithm>

#include "host/xcp/slave/slave_checksum.h"
#include "host/xcp/xcp_protocol.h"

namespace hostxcp {

namespace {

// Shortest packet of each command; shorter ones get ERR_CMD_SYNTAX.
size_t minimumLength(uint8_t code) {
    switch (code) {
    case cmd::kConnect: case cmd::kGetId: case cmd::kStartStopSynch: return 2;
    case cmd::kGetSeed: case cmd::kGetCalPage: case cmd::kSetSegmentMode: case cmd::kGetSegmentMode:
    case cmd::kGetSectorInfo: return 3;
    case cmd::kSetRequest: case cmd::kSetCalPage: case cmd::kGetPageInfo: case cmd::kClearDaqList:
    case cmd::kGetDaqListMode: case cmd::kStartStopDaqList: case cmd::kGetDaqListInfo:
    case cmd::kGetDaqEventInfo: case cmd::kAllocDaq: case cmd::kProgramPrepare: return 4;
    case cmd::kGetSegmentInfo: case cmd::kCopyCalPage: case cmd::kAllocOdt: case cmd::kProgramFormat: return 5;
    case cmd::kModifyBits: case cmd::kSetDaqPtr: case cmd::kAllocOdtEntry: return 6;
    case cmd::kSetMta: case cmd::kShortUpload: case cmd::kBuildChecksum: case cmd::kShortDownload:
    case cmd::kWriteDaq: case cmd::kSetDaqListMode: case cmd::kProgramClear: case cmd::kProgramVerify: return 8;
    case cmd::kUnlock: case cmd::kUpload: case cmd::kTransportLayerCmd: case cmd::kUserCmd:
    case cmd::kDownload: case cmd::kDownloadNext: case cmd::kProgram: case cmd::kProgramNext:
    case cmd::kWriteDaqMultiple: return 2;
    default: return 1;
    }
}

// The resource a command needs, 0 for none.
uint8_t resourceOf(uint8_t code) {
    if (code >= cmd::kCopyCalPage && code <= cmd::kDownload) return res::kCalPag;
    if ((code >= cmd::kAllocOdtEntry && code <= cmd::kClearDaqList) || code == cmd::kWriteDaqMultiple)
        return res::kDaq;
    if (code >= cmd::kProgramVerify && code <= cmd::kProgramStart) return res::kPgm;
    return 0;
}

bool known(uint8_t code) { return code >= cmd::kWriteDaqMultiple; }

// Nanoseconds of a timestamp unit code.
int64_t unitNs(uint8_t unit) {
    int64_t ns = 1;
    for (uint8_t i = 0; i < unit; ++i) ns *= 10;
    return ns;
}

}  // namespace

XcpSlaveCore::XcpSlaveCore(const XcpSlaveConfig& config) : config_(config) {
    for (const XcpSlaveRegion& r : config_.regions) regions_.push_back(r.bytes);
    for (const XcpSlaveSegment& s : config_.segments) {
        pages_.emplace_back(s.pages.size(), s.initial);
        ecuPage_.push_back(s.ecuPage);
        xcpPage_.push_back(s.xcpPage);
        segmentMode_.push_back(0);
    }
    nextTick_.assign(config_.events.size(), kNever);
    behaviourUses_.assign(config_.behaviours.size(), 0);
    resetDaq();
}

void XcpSlaveCore::resetDaq() {
    lists_.clear();
    allocStage_ = 0;
    ptrValid_ = false;
    if (!config_.daq.dynamic) {
        for (const XcpSlaveDaqList& l : config_.daq.staticLists) {
            DaqList list;
            list.odts.assign(l.odts, Odt{std::vector<Entry>(l.entries)});
            list.canId = config_.slaveId;
            lists_.push_back(std::move(list));
        }
    }
    std::fill(nextTick_.begin(), nextTick_.end(), kNever);
}

// ---- packets ----

void XcpSlaveCore::put16(Bytes& p, uint16_t v) const {
    if (config_.motorola) {
        p.push_back(static_cast<uint8_t>(v >> 8));
        p.push_back(static_cast<uint8_t>(v));
    } else {
        p.push_back(static_cast<uint8_t>(v));
        p.push_back(static_cast<uint8_t>(v >> 8));
    }
}

void XcpSlaveCore::put32(Bytes& p, uint32_t v) const {
    for (int i = 0; i < 4; ++i) {
        const int shift = config_.motorola ? 24 - 8 * i : 8 * i;
        p.push_back(static_cast<uint8_t>(v >> shift));
    }
}

uint16_t XcpSlaveCore::get16(const uint8_t* p) const {
    return static_cast<uint16_t>(config_.motorola ? (p[0] << 8) | p[1] : (p[1] << 8) | p[0]);
}

uint32_t XcpSlaveCore::get32(const uint8_t* p) const {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v = (v << 8) | p[config_.motorola ? i : 3 - i];
    return v;
}

XcpSlaveCore::Frame XcpSlaveCore::response(Bytes payload) const {
    payload.insert(payload.begin(), pid::kResponse);
    if (payload.size() > config_.maxCto) payload.resize(config_.maxCto);
    return {config_.slaveId, std::move(payload)};
}

XcpSlaveCore::Frame XcpSlaveCore::error(uint8_t code, Bytes extra) const {
    Bytes p{pid::kError, code};
    p.insert(p.end(), extra.begin(), extra.end());
    return {config_.slaveId, std::move(p)};
}

XcpSlaveCore::Frame XcpSlaveCore::event(uint8_t code) const { return {config_.slaveId, {pid::kEvent, code}}; }

// ---- memory ----

// Walks a byte range over the regions and segments it spans, calling `piece` with the bytes
// behind each part; the range must be mapped whole.
template <typename Piece>
static uint8_t walk(const XcpSlaveConfig& config, uint8_t ext, uint32_t address, size_t bytes, Piece piece) {
    const uint64_t ag = config.granularity;
    size_t pos = 0;
    while (pos < bytes) {
        const uint64_t element = static_cast<uint64_t>(address) + pos / ag;
        const size_t within = pos % ag;
        bool found = false;
        for (size_t i = 0; i < config.regions.size() && !found; ++i) {
            const XcpSlaveRegion& r = config.regions[i];
            const uint64_t count = r.bytes.size() / ag;
            if (r.extension != ext || element < r.address || element >= r.address + count) continue;
            const size_t offset = static_cast<size_t>((element - r.address) * ag + within);
            const size_t n = std::min(r.bytes.size() - offset, bytes - pos);
            if (const uint8_t e = piece(false, i, offset, pos, n)) return e;
            pos += n;
            found = true;
        }
        for (size_t i = 0; i < config.segments.size() && !found; ++i) {
            const XcpSlaveSegment& s = config.segments[i];
            const uint64_t count = s.initial.size() / ag;
            if (s.extension != ext || element < s.address || element >= s.address + count) continue;
            const size_t offset = static_cast<size_t>((element - s.address) * ag + within);
            const size_t n = std::min(s.initial.size() - offset, bytes - pos);
            if (const uint8_t e = piece(true, i, offset, pos, n)) return e;
            pos += n;
            found = true;
        }
        if (!found) return err::kOutOfRange;
    }
    return 0;
}

uint8_t XcpSlaveCore::read(uint8_t ext, uint32_t address, size_t bytes, Bytes& out, Access access) const {
    Bytes data(bytes);
    const uint8_t e = walk(config_, ext, address, bytes, [&](bool segment, size_t i, size_t offset, size_t pos, size_t n) {
        const Bytes& from = segment ? pages_[i][access == Access::Xcp ? xcpPage_[i] : ecuPage_[i]] : regions_[i];
        std::copy_n(from.begin() + static_cast<std::ptrdiff_t>(offset), n, data.begin() + static_cast<std::ptrdiff_t>(pos));
        return uint8_t{0};
    });
    if (e == 0) out.insert(out.end(), data.begin(), data.end());
    return e;
}

uint8_t XcpSlaveCore::write(uint8_t ext, uint32_t address, const uint8_t* data, size_t bytes, Access access) {
    // Checked whole first: a refused write changes nothing.
    uint8_t e = walk(config_, ext, address, bytes, [&](bool segment, size_t i, size_t, size_t, size_t) -> uint8_t {
        if (access == Access::Ecu) return 0;
        if (access == Access::Program) {
            return !segment && config_.regions[i].flash ? 0 : err::kAccessDenied;
        }
        if (segment) return config_.segments[i].pages[xcpPage_[i]].writable ? 0 : err::kWriteProtected;
        const XcpSlaveRegion& r = config_.regions[i];
        return r.writable && !r.flash ? 0 : err::kWriteProtected;
    });
    if (e != 0) return e;
    walk(config_, ext, address, bytes, [&](bool segment, size_t i, size_t offset, size_t pos, size_t n) {
        Bytes& to = segment ? pages_[i][access == Access::Xcp ? xcpPage_[i] : ecuPage_[i]] : regions_[i];
        std::copy_n(data + pos, n, to.begin() + static_cast<std::ptrdiff_t>(offset));
        return uint8_t{0};
    });
    return 0;
}

uint8_t XcpSlaveCore::readMta(size_t bytes, Bytes& out) {
    if (mtaKind_ == Mta::Text) {
        // Text padded with zeros to whole elements.
        const size_t padded = (mtaText_.size() + config_.granularity - 1) / config_.granularity * config_.granularity;
        if (mtaTextOffset_ + bytes > padded) return err::kOutOfRange;
        for (size_t i = 0; i < bytes; ++i) {
            const size_t at = mtaTextOffset_ + i;
            out.push_back(at < mtaText_.size() ? static_cast<uint8_t>(mtaText_[at]) : 0);
        }
        mtaTextOffset_ += bytes;
        return 0;
    }
    if (const uint8_t e = read(mtaExt_, mtaAddress_, bytes, out, Access::Xcp)) return e;
    mtaAddress_ += static_cast<uint32_t>(bytes / config_.granularity);
    return 0;
}

uint8_t XcpSlaveCore::writeMta(const uint8_t* data, size_t bytes, Access access) {
    if (mtaKind_ == Mta::Text) return err::kWriteProtected;
    if (const uint8_t e = write(mtaExt_, mtaAddress_, data, bytes, access)) return e;
    mtaAddress_ += static_cast<uint32_t>(bytes / config_.granularity);
    return 0;
}

void XcpSlaveCore::setMtaText(const std::string& text) {
    mtaKind_ = Mta::Text;
    mtaText_ = text;
    mtaTextOffset_ = 0;
}

bool XcpSlaveCore::ecuRead(uint8_t ext, uint32_t address, size_t bytes, std::vector<uint8_t>& out) const {
    Bytes data;
    if (read(ext, address, bytes, data, Access::Ecu) != 0) return false;
    out = std::move(data);
    return true;
}

bool XcpSlaveCore::ecuWrite(uint8_t ext, uint32_t address, const std::vector<uint8_t>& bytes) {
    return write(ext, address, bytes.data(), bytes.size(), Access::Ecu) == 0;
}

bool XcpSlaveCore::find(const std::string& name, uint8_t& ext, uint32_t& address, size_t& bytes) const {
    for (const XcpSlaveRegion& r : config_.regions) {
        if (r.name != name) continue;
        ext = r.extension, address = r.address, bytes = r.bytes.size();
        return true;
    }
    for (const XcpSlaveSegment& s : config_.segments) {
        if (s.name != name) continue;
        ext = s.extension, address = s.address, bytes = s.initial.size();
        return true;
    }
    return false;
}

// ---- session ----

bool XcpSlaveCore::locked(uint8_t resource) const {
    if ((unlocked_ & resource) != 0) return false;
    return std::any_of(config_.protections.begin(), config_.protections.end(),
                       [&](const XcpSlaveProtection& p) { return p.resource == resource; });
}

uint8_t XcpSlaveCore::protectionStatus() const {
    uint8_t status = 0;
    for (const XcpSlaveProtection& p : config_.protections) {
        if ((unlocked_ & p.resource) == 0) status |= p.resource;
    }
    return status;
}

void XcpSlaveCore::disconnect() {
    connected_ = false;
    unlocked_ = 0;
    seedResource_ = 0;
    seedGiven_ = false;
    keyReceived_.clear();
    block_ = Block{};
    programming_ = false;
    for (DaqList& l : lists_) {
        stopList(l);
        l.selected = false;
    }
}

void XcpSlaveCore::receive(uint32_t id, bool extended, const uint8_t* data, size_t length, int64_t nowUs,
                           std::vector<Frame>& out) {
    if (length == 0 || extended != config_.extendedIds) return;
    if (config_.broadcastId && id == *config_.broadcastId) {
        // The broadcast id serves slave detection only, connected or not.
        if (length >= 2 && data[0] == cmd::kTransportLayerCmd && data[1] == tl::kGetSlaveId) {
            transportLayer(data, std::min<size_t>(length, config_.maxCto), true, out);
        }
        return;
    }
    if (id != config_.masterId) return;
    const uint8_t code = data[0];
    if (code < 0xC0) return;  // a STIM packet: this slave has no STIM
    if (!connected_ && code != cmd::kConnect) return;  // silence until CONNECT
    length = std::min<size_t>(length, config_.maxCto);  // bytes past MAX_CTO are padding

    // A command while a delayed answer waits: only SYNCH gets through, and ends the wait.
    if (!delayed_.empty()) {
        if (code == cmd::kSynch) {
            delayed_.clear();
            out.push_back(error(err::kCmdSynch));
        } else {
            out.push_back(error(err::kCmdBusy));
        }
        return;
    }

    for (size_t i = 0; i < config_.behaviours.size(); ++i) {
        const XcpSlaveBehaviour& b = config_.behaviours[i];
        if (b.command >= 0 && b.command != code) continue;
        if (b.times != 0 && behaviourUses_[i] >= b.times) continue;
        ++behaviourUses_[i];
        if (b.silent) return;
        if (b.error) {
            out.push_back(error(*b.error));
            return;
        }
        std::vector<Frame> answer;
        dispatch(data, length, nowUs, answer);
        const int64_t interval = static_cast<int64_t>(b.pendingIntervalMs) * 1000;
        for (unsigned k = 0; k < b.pending; ++k) {
            if (k == 0) {
                out.push_back(event(ev::kCmdPending));
            } else {
                delayed_.push_back({nowUs + interval * k, event(ev::kCmdPending)});
            }
        }
        for (Frame& f : answer) delayed_.push_back({nowUs + static_cast<int64_t>(b.delayMs) * 1000, std::move(f)});
        std::stable_sort(delayed_.begin(), delayed_.end(),
                         [](const Delayed& a, const Delayed& b2) { return a.due < b2.due; });
        return;
    }
    dispatch(data, length, nowUs, out);
}

void XcpSlaveCore::dispatch(const uint8_t* c, size_t n, int64_t nowUs, std::vector<Frame>& out) {
    const uint8_t code = c[0];
    // Anything but the next packet of a block ends the block.
    if (block_.command != 0 && code != block_.command) block_ = Block{};
    if (!known(code)) {
        out.push_back(error(err::kCmdUnknown));
        return;
    }
    const uint8_t resource = resourceOf(code);
    if (resource != 0 && (config_.resources & resource) == 0) {
        out.push_back(error(err::kCmdUnknown));
        return;
    }
    if (n < minimumLength(code)) {
        out.push_back(error(err::kCmdSyntax));
        return;
    }
    if (resource != 0 && locked(resource)) {
        out.push_back(error(err::kAccessLocked));
        return;
    }
    const uint8_t ag = config_.granularity;
    switch (code) {
    case cmd::kConnect: connect(c, n, out); return;
    case cmd::kDisconnect:
        disconnect();
        out.push_back(response({}));
        return;
    case cmd::kGetStatus: {
        uint8_t status = sessionStatus_;
        if (std::any_of(lists_.begin(), lists_.end(), [](const DaqList& l) { return l.running; })) status |= 0x40;
        Bytes p{status, protectionStatus(), 0};
        put16(p, sessionId_);
        out.push_back(response(p));
        return;
    }
    case cmd::kSynch: out.push_back(error(err::kCmdSynch)); return;
    case cmd::kGetCommModeInfo:
        out.push_back(response({0, static_cast<uint8_t>(config_.masterBlockMode ? 0x01 : 0x00), 0, config_.maxBs,
                                config_.minSt, 0, 0x10}));
        return;
    case cmd::kGetId: {
        const auto it = config_.identification.find(c[1]);
        const std::string text = it == config_.identification.end() ? std::string() : it->second;
        setMtaText(text);
        Bytes p{0, 0, 0};
        put32(p, static_cast<uint32_t>(text.size()));
        out.push_back(response(p));
        return;
    }
    case cmd::kSetRequest: {
        const uint8_t mode = c[1];
        if ((mode & ~0x0D) != 0) {
            out.push_back(error(err::kOutOfRange));
            return;
        }
        if (mode & 0x04) sessionId_ = get16(c + 2);
        out.push_back(response({}));
        // Storing is immediate here; the events say it is done.
        if (mode & 0x01) out.push_back(event(ev::kStoreCal));
        if (mode & 0x04) out.push_back(event(ev::kStoreDaq));
        if (mode & 0x08) out.push_back(event(ev::kClearDaq));
        return;
    }
    case cmd::kGetSeed: getSeed(c, n, out); return;
    case cmd::kUnlock: unlock(c, n, out); return;
    case cmd::kSetMta:
        mtaKind_ = Mta::Memory;
        mtaExt_ = c[3];
        mtaAddress_ = get32(c + 4);
        out.push_back(response({}));
        return;
    case cmd::kUpload: upload(c[1], out, 0); return;
    case cmd::kShortUpload:
        mtaKind_ = Mta::Memory;
        mtaExt_ = c[3];
        mtaAddress_ = get32(c + 4);
        upload(c[1], out, 1);
        return;
    case cmd::kBuildChecksum: buildChecksum(c, n, out); return;
    case cmd::kTransportLayerCmd: transportLayer(c, n, false, out); return;
    case cmd::kUserCmd:
        if (c[1] == 0x01) {  // echo: answers its own parameters
            out.push_back(response(Bytes(c + 2, c + n)));
        } else {
            out.push_back(error(err::kSubcmdUnknown));
        }
        return;
    case cmd::kDownload: case cmd::kDownloadNext: case cmd::kDownloadMax:
    case cmd::kProgram: case cmd::kProgramNext: case cmd::kProgramMax:
        if (code >= cmd::kProgramMax && code <= cmd::kProgram && !programming_) {
            out.push_back(error(err::kSequence));
            return;
        }
        transferIn(c, n, out);
        return;
    case cmd::kShortDownload: {
        const size_t bytes = static_cast<size_t>(c[1]) * ag;
        if (c[1] == 0 || bytes > static_cast<size_t>(config_.maxCto - 8)) {
            out.push_back(error(err::kOutOfRange));
            return;
        }
        if (n < 8 + bytes) {
            out.push_back(error(err::kCmdSyntax));
            return;
        }
        mtaKind_ = Mta::Memory;
        mtaExt_ = c[3];
        mtaAddress_ = get32(c + 4);
        const uint8_t e = writeMta(c + 8, bytes, Access::Xcp);
        out.push_back(e ? error(e) : response({}));
        return;
    }
    case cmd::kModifyBits: {
        const uint8_t shift = c[1];
        if (shift > 31 || mtaKind_ != Mta::Memory) {
            out.push_back(error(err::kOutOfRange));
            return;
        }
        Bytes value;
        uint8_t e = read(mtaExt_, mtaAddress_, 4, value, Access::Xcp);
        if (e == 0) {
            uint32_t x = get32(value.data());
            const uint32_t andMask = static_cast<uint32_t>(static_cast<uint16_t>(~get16(c + 2))) << shift;
            const uint32_t xorMask = static_cast<uint32_t>(get16(c + 4)) << shift;
            x = (x & ~andMask) ^ xorMask;
            Bytes back;
            put32(back, x);
            e = write(mtaExt_, mtaAddress_, back.data(), 4, Access::Xcp);
        }
        out.push_back(e ? error(e) : response({}));
        return;
    }
    default: break;
    }
    if (resource == res::kCalPag) {
        pageCommand(c, n, out);
    } else if (resource == res::kDaq) {
        daqCommand(c, n, nowUs, out);
    } else if (resource == res::kPgm) {
        programCommand(c, n, out);
    } else {
        out.push_back(error(err::kCmdUnknown));
    }
}

void XcpSlaveCore::connect(const uint8_t* c, size_t, std::vector<Frame>& out) {
    if (c[1] > 1) {
        out.push_back(error(err::kOutOfRange));
        return;
    }
    if (!connected_) disconnect();  // a new session starts locked
    connected_ = true;
    seedResource_ = 0;
    seedGiven_ = false;
    keyReceived_.clear();
    const uint8_t agBits = config_.granularity == 1 ? 0 : config_.granularity == 2 ? 1 : 2;
    const uint8_t basic = static_cast<uint8_t>((config_.motorola ? 0x01 : 0) | (agBits << 1) |
                                               (config_.slaveBlockMode ? 0x40 : 0) | 0x80);
    Bytes p{config_.resources, basic, config_.maxCto};
    put16(p, config_.maxDto);
    p.push_back(0x01);  // protocol layer version
    p.push_back(0x01);  // transport layer version
    out.push_back(response(p));
}

// UPLOAD and SHORT_UPLOAD: the elements at the MTA, in one packet or, in slave block mode, in
// as many as it takes.
void XcpSlaveCore::upload(uint8_t count, std::vector<Frame>& out, uint8_t isShort) {
    const size_t ag = config_.granularity;
    const size_t offset = ag == 1 ? 1 : ag;
    const size_t perPacket = (config_.maxCto - offset) / ag;
    if (count == 0 || (count > perPacket && (isShort || !config_.slaveBlockMode))) {
        out.push_back(error(err::kOutOfRange));
        return;
    }
    Bytes data;
    if (const uint8_t e = readMta(count * ag, data)) {
        out.push_back(error(e));
        return;
    }
    for (size_t at = 0; at < data.size(); at += perPacket * ag) {
        Bytes p(offset, 0);
        p[0] = pid::kResponse;
        const size_t n = std::min(perPacket * ag, data.size() - at);
        p.insert(p.end(), data.begin() + static_cast<std::ptrdiff_t>(at),
                 data.begin() + static_cast<std::ptrdiff_t>(at + n));
        out.push_back({config_.slaveId, std::move(p)});
    }
}

// DOWNLOAD, DOWNLOAD_NEXT, DOWNLOAD_MAX and their programming twins: data at the MTA, in master
// block mode over several packets with one answer at the end.
void XcpSlaveCore::transferIn(const uint8_t* c, size_t n, std::vector<Frame>& out) {
    const uint8_t code = c[0];
    const bool program = code == cmd::kProgram || code == cmd::kProgramNext || code == cmd::kProgramMax;
    const Access access = program ? Access::Program : Access::Xcp;
    const size_t ag = config_.granularity;
    if (code == cmd::kDownloadMax || code == cmd::kProgramMax) {
        const size_t offset = ag == 1 ? 1 : ag;
        const size_t bytes = (config_.maxCto - offset) / ag * ag;
        if (n < offset + bytes) {
            out.push_back(error(err::kCmdSyntax));
            return;
        }
        const uint8_t e = writeMta(c + offset, bytes, access);
        out.push_back(e ? error(e) : response({}));
        return;
    }
    const size_t offset = ag == 4 ? 4 : 2;
    const size_t perPacket = (config_.maxCto - offset) / ag;
    const bool next = code == cmd::kDownloadNext || code == cmd::kProgramNext;
    const unsigned count = c[1];
    if (next) {
        if (block_.command != code) {
            out.push_back(error(err::kSequence));
            return;
        }
        if (count != block_.remaining) {
            out.push_back(error(err::kSequence, {static_cast<uint8_t>(block_.remaining)}));
            block_ = Block{};
            return;
        }
    } else {
        if (count == 0) {
            // PROGRAM with no data ends a segment's programming.
            out.push_back(program ? response({}) : error(err::kOutOfRange));
            return;
        }
        const size_t most = config_.masterBlockMode ? perPacket * config_.maxBs : perPacket;
        if (count > most) {
            out.push_back(error(err::kOutOfRange));
            return;
        }
    }
    const size_t elements = std::min<size_t>(count, perPacket);
    if (n < offset + elements * ag) {
        block_ = Block{};
        out.push_back(error(err::kCmdSyntax));
        return;
    }
    if (const uint8_t e = writeMta(c + offset, elements * ag, access)) {
        block_ = Block{};
        out.push_back(error(e));
        return;
    }
    if (elements == count) {
        block_ = Block{};
        out.push_back(response({}));
        return;
    }
    block_.command = program ? cmd::kProgramNext : cmd::kDownloadNext;
    block_.remaining = static_cast<unsigned>(count - elements);
}

void XcpSlaveCore::getSeed(const uint8_t* c, size_t, std::vector<Frame>& out) {
    const size_t chunk = config_.maxCto - 2u;
    if (c[1] == 0) {
        const uint8_t r = c[2];
        const bool single = r != 0 && (r & (r - 1)) == 0;
        if (!single || (r & config_.resources) == 0) {
            out.push_back(error(err::kOutOfRange));
            return;
        }
        keyReceived_.clear();
        const auto p = std::find_if(config_.protections.begin(), config_.protections.end(),
                                    [&](const XcpSlaveProtection& x) { return x.resource == r; });
        if (p == config_.protections.end() || (unlocked_ & r) != 0) {
            seedResource_ = 0;
            out.push_back(response({0}));  // not protected: nothing to unlock
            return;
        }
        seedResource_ = r;
        seedSent_ = 0;
    } else if (c[1] != 1) {
        out.push_back(error(err::kOutOfRange));
        return;
    }
    const auto p = std::find_if(config_.protections.begin(), config_.protections.end(),
                                [&](const XcpSlaveProtection& x) { return x.resource == seedResource_; });
    if (seedResource_ == 0 || p == config_.protections.end() || seedSent_ >= p->seed.size()) {
        out.push_back(error(err::kSequence));
        return;
    }
    const size_t remaining = p->seed.size() - seedSent_;
    const size_t n = std::min(remaining, chunk);
    Bytes answer{static_cast<uint8_t>(remaining)};
    answer.insert(answer.end(), p->seed.begin() + static_cast<std::ptrdiff_t>(seedSent_),
                  p->seed.begin() + static_cast<std::ptrdiff_t>(seedSent_ + n));
    seedSent_ += n;
    seedGiven_ = seedSent_ == p->seed.size();
    out.push_back(response(answer));
}

void XcpSlaveCore::unlock(const uint8_t* c, size_t n, std::vector<Frame>& out) {
    const auto p = std::find_if(config_.protections.begin(), config_.protections.end(),
                                [&](const XcpSlaveProtection& x) { return x.resource == seedResource_; });
    if (!seedGiven_ || p == config_.protections.end()) {
        out.push_back(error(err::kSequence));
        return;
    }
    const size_t length = c[1];
    if (keyReceived_.empty()) {
        keyExpected_ = length;
    } else if (length != keyExpected_ - keyReceived_.size()) {
        out.push_back(error(err::kSequence));
        return;
    }
    const size_t part = std::min<size_t>(length, config_.maxCto - 2u);
    if (n < 2 + part) {
        out.push_back(error(err::kCmdSyntax));
        return;
    }
    keyReceived_.insert(keyReceived_.end(), c + 2, c + 2 + part);
    if (part < length) {
        out.push_back(response({protectionStatus()}));
        return;
    }
    Bytes expected(p->seed.size());
    for (size_t i = 0; i < expected.size(); ++i) expected[i] = p->seed[i] ^ p->mask[i % p->mask.size()];
    const bool good = keyReceived_ == expected;
    keyReceived_.clear();
    seedGiven_ = false;
    if (!good) {
        // A wrong key ends the session, as the protocol wants.
        out.push_back(error(err::kAccessLocked));
        disconnect();
        return;
    }
    unlocked_ |= seedResource_;
    seedResource_ = 0;
    out.push_back(response({protectionStatus()}));
}

void XcpSlaveCore::buildChecksum(const uint8_t* c, size_t, std::vector<Frame>& out) {
    const uint32_t size = get32(c + 4);
    if (size == 0 || size > config_.maxChecksumBlock) {
        Bytes extra{0, 0};
        put32(extra, config_.maxChecksumBlock);
        out.push_back(error(err::kOutOfRange, extra));
        return;
    }
    const size_t bytes = static_cast<size_t>(size) * config_.granularity;
    const size_t word = checksumWordSize(config_.checksum);
    if (bytes % word != 0) {
        out.push_back(error(err::kOutOfRange));
        return;
    }
    Bytes data;
    if (const uint8_t e = readMta(bytes, data)) {
        out.push_back(error(e));
        return;
    }
    Bytes p{static_cast<uint8_t>(config_.checksum), 0, 0};
    put32(p, checksum(config_.checksum, data, config_.motorola));
    out.push_back(response(p));
}

void XcpSlaveCore::transportLayer(const uint8_t* c, size_t n, bool broadcast, std::vector<Frame>& out) {
    const uint8_t sub = c[1];
    if (sub == tl::kGetSlaveId) {
        if (n < 6 || c[2] != 'X' || c[3] != 'C' || c[4] != 'P') {
            if (!broadcast) out.push_back(error(err::kCmdSyntax));
            return;
        }
        if (c[5] > 1) {
            if (!broadcast) out.push_back(error(err::kOutOfRange));
            return;
        }
        const uint8_t flip = c[5] == 1 ? 0xFF : 0x00;
        Bytes p{static_cast<uint8_t>('X' ^ flip), static_cast<uint8_t>('C' ^ flip), static_cast<uint8_t>('P' ^ flip)};
        put32(p, config_.masterId | (config_.extendedIds ? 0x80000000u : 0));
        out.push_back(response(p));
        return;
    }
    if (sub != tl::kGetDaqId && sub != tl::kSetDaqId) {
        out.push_back(error(err::kSubcmdUnknown));
        return;
    }
    if ((config_.resources & res::kDaq) == 0) {
        out.push_back(error(err::kCmdUnknown));
        return;
    }
    if (locked(res::kDaq)) {
        out.push_back(error(err::kAccessLocked));
        return;
    }
    if (n < (sub == tl::kGetDaqId ? 4u : 8u)) {
        out.push_back(error(err::kCmdSyntax));
        return;
    }
    const uint16_t list = get16(c + 2);
    if (list >= lists_.size()) {
        out.push_back(error(err::kOutOfRange));
        return;
    }
    if (sub == tl::kGetDaqId) {
        Bytes p{0, 0, 0};  // configurable, not fixed
        put32(p, lists_[list].canId | (config_.extendedIds ? 0x80000000u : 0));
        out.push_back(response(p));
        return;
    }
    const uint32_t id = get32(c + 4) & 0x7FFFFFFF;
    if (id > (config_.extendedIds ? 0x1FFFFFFFu : 0x7FFu)) {
        out.push_back(error(err::kOutOfRange));
        return;
    }
    if (lists_[list].running) {
        out.push_back(error(err::kDaqActive));
        return;
    }
    lists_[list].canId = id;
    out.push_back(response({}));
}

void XcpSlaveCore::pageCommand(const uint8_t* c, size_t, std::vector<Frame>& out) {
    const size_t segments = config_.segments.size();
    auto badSegment = [&](uint8_t s) { return s >= segments; };
    auto badPage = [&](uint8_t s, uint8_t p) { return p >= config_.segments[s].pages.size(); };
    switch (c[0]) {
    case cmd::kSetCalPage: {
        const uint8_t mode = c[1];
        if ((mode & 0x03) == 0 || (mode & ~0x83) != 0) {
            out.push_back(error(err::kModeNotValid));
            return;
        }
        std::vector<size_t> which;
        if (mode & 0x80) {
            for (size_t s = 0; s < segments; ++s) which.push_back(s);
        } else if (badSegment(c[2])) {
            out.push_back(error(err::kSegmentNotValid));
            return;
        } else {
            which.push_back(c[2]);
        }
        for (size_t s : which) {
            if (badPage(static_cast<uint8_t>(s), c[3])) {
                out.push_back(error(err::kPageNotValid));
                return;
            }
        }
        for (size_t s : which) {
            if (mode & 0x01) ecuPage_[s] = c[3];
            if (mode & 0x02) xcpPage_[s] = c[3];
        }
        out.push_back(response({}));
        return;
    }
    case cmd::kGetCalPage:
        if (c[1] != 0x01 && c[1] != 0x02) {
            out.push_back(error(err::kModeNotValid));
        } else if (badSegment(c[2])) {
            out.push_back(error(err::kSegmentNotValid));
        } else {
            out.push_back(response({0, 0, c[1] == 0x01 ? ecuPage_[c[2]] : xcpPage_[c[2]]}));
        }
        return;
    case cmd::kGetPagProcessorInfo:
        out.push_back(response({static_cast<uint8_t>(segments), static_cast<uint8_t>(config_.freezeSupported ? 1 : 0)}));
        return;
    case cmd::kGetSegmentInfo: {
        const uint8_t mode = c[1], s = c[2], info = c[3];
        if (badSegment(s)) {
            out.push_back(error(err::kSegmentNotValid));
            return;
        }
        const XcpSlaveSegment& seg = config_.segments[s];
        if (mode == 0) {
            if (info > 1) {
                out.push_back(error(err::kOutOfRange));
                return;
            }
            Bytes p{0, 0, 0};
            put32(p, info == 0 ? seg.address : static_cast<uint32_t>(seg.initial.size() / config_.granularity));
            out.push_back(response(p));
        } else if (mode == 1) {
            out.push_back(response({static_cast<uint8_t>(seg.pages.size()), seg.extension, 0, 0, 0}));
        } else if (mode == 2) {
            out.push_back(error(err::kOutOfRange));  // no address mappings
        } else {
            out.push_back(error(err::kModeNotValid));
        }
        return;
    }
    case cmd::kGetPageInfo: {
        const uint8_t s = c[2], page = c[3];
        if (badSegment(s)) {
            out.push_back(error(err::kSegmentNotValid));
        } else if (badPage(s, page)) {
            out.push_back(error(err::kPageNotValid));
        } else {
            const uint8_t props = static_cast<uint8_t>(0x0F | (config_.segments[s].pages[page].writable ? 0x30 : 0));
            out.push_back(response({props, s}));
        }
        return;
    }
    case cmd::kSetSegmentMode:
        if ((c[1] & ~0x01) != 0 || (c[1] != 0 && !config_.freezeSupported)) {
            out.push_back(error(err::kModeNotValid));
        } else if (badSegment(c[2])) {
            out.push_back(error(err::kSegmentNotValid));
        } else {
            segmentMode_[c[2]] = c[1];
            out.push_back(response({}));
        }
        return;
    case cmd::kGetSegmentMode:
        if (badSegment(c[2])) {
            out.push_back(error(err::kSegmentNotValid));
        } else {
            out.push_back(response({0, segmentMode_[c[2]]}));
        }
        return;
    case cmd::kCopyCalPage: {
        const uint8_t ss = c[1], sp = c[2], ds = c[3], dp = c[4];
        if (badSegment(ss) || badSegment(ds)) {
            out.push_back(error(err::kSegmentNotValid));
        } else if (badPage(ss, sp) || badPage(ds, dp)) {
            out.push_back(error(err::kPageNotValid));
        } else if (config_.segments[ss].initial.size() != config_.segments[ds].initial.size()) {
            out.push_back(error(err::kOutOfRange));
        } else if (!config_.segments[ds].pages[dp].writable) {
            out.push_back(error(err::kWriteProtected));
        } else {
            pages_[ds][dp] = pages_[ss][sp];
            out.push_back(response({}));
        }
        return;
    }
    default: out.push_back(error(err::kCmdUnknown)); return;
    }
}

// ---- DAQ ----

uint8_t XcpSlaveCore::firstPid(size_t list) const {
    size_t pid = 0;
    for (size_t i = 0; i < list; ++i) pid += lists_[i].odts.size();
    return static_cast<uint8_t>(pid);
}

uint32_t XcpSlaveCore::timestamp(int64_t atUs) const {
    const int64_t ns = unitNs(config_.daq.timestampUnit);
    const int64_t units = ns >= 1000 ? atUs / (ns / 1000) : atUs * (1000 / ns);
    const uint64_t value = static_cast<uint64_t>(units) / config_.daq.timestampTicks;
    switch (config_.daq.timestampSize) {
    case 1: return static_cast<uint32_t>(value & 0xFF);
    case 2: return static_cast<uint32_t>(value & 0xFFFF);
    default: return static_cast<uint32_t>(value);
    }
}

uint8_t XcpSlaveCore::checkListFits(const DaqList& list) const {
    if (list.event >= config_.events.size() || list.odts.empty()) return err::kDaqConfig;
    const bool stamped = (list.mode & 0x10) != 0;
    bool first = true;
    for (const Odt& odt : list.odts) {
        size_t bytes = 1;
        bool used = false;
        for (const Entry& e : odt.entries) {
            bytes += static_cast<size_t>(e.size) * config_.granularity;
            used = used || e.size != 0;
        }
        if (!used) continue;
        if (first && stamped) bytes += config_.daq.timestampSize;
        first = false;
        if (bytes > config_.maxDto) return err::kDaqConfig;
    }
    return first ? err::kDaqConfig : 0;  // nothing to measure
}

void XcpSlaveCore::startList(DaqList& list, int64_t nowUs) {
    list.running = true;
    list.countdown = 0;
    const XcpSlaveEvent& ev = config_.events[list.event];
    int64_t& tick = nextTick_[list.event];
    if (ev.periodMs > 0 && tick == kNever) {
        const int64_t period = static_cast<int64_t>(ev.periodMs) * 1000;
        tick = (nowUs / period + 1) * period;
    }
}

void XcpSlaveCore::stopList(DaqList& list) { list.running = false; }

uint8_t XcpSlaveCore::writeDaqEntry(uint8_t bit, uint8_t size, uint8_t ext, uint32_t address) {
    if (!ptrValid_ || ptrList_ >= lists_.size()) return err::kSequence;
    DaqList& list = lists_[ptrList_];
    if (list.running) return err::kDaqActive;
    if (ptrOdt_ >= list.odts.size() || ptrEntry_ >= list.odts[ptrOdt_].entries.size()) return err::kOutOfRange;
    if (size > config_.daq.maxEntrySize / config_.granularity) return err::kOutOfRange;
    if (bit != 0xFF && (bit > 31 || size != 1)) return err::kOutOfRange;
    if (size != 0) {
        // A bit entry reads its 32-bit variable; others their elements.
        const size_t bytes = bit != 0xFF ? 4 : static_cast<size_t>(size) * config_.granularity;
        Bytes probe;
        if (read(ext, address, bytes, probe, Access::Ecu) != 0) return err::kOutOfRange;
    }
    list.odts[ptrOdt_].entries[ptrEntry_] = Entry{bit, size, ext, address};
    ++ptrEntry_;
    return 0;
}

void XcpSlaveCore::daqCommand(const uint8_t* c, size_t n, int64_t nowUs, std::vector<Frame>& out) {
    const XcpSlaveDaq& daq = config_.daq;
    auto listArg = [&](size_t at, DaqList*& list) {
        const uint16_t number = get16(c + at);
        if (number >= lists_.size()) return false;
        list = &lists_[number];
        return true;
    };
    DaqList* list = nullptr;
    switch (c[0]) {
    case cmd::kClearDaqList:
        if (!listArg(2, list)) break;
        stopList(*list);
        list->selected = false;
        for (Odt& odt : list->odts) std::fill(odt.entries.begin(), odt.entries.end(), Entry{});
        list->mode = 0;
        list->event = 0xFFFF;
        list->prescaler = 1;
        out.push_back(response({}));
        return;
    case cmd::kSetDaqPtr:
        if (!listArg(2, list)) break;
        if (c[4] >= list->odts.size() || c[5] >= list->odts[c[4]].entries.size()) break;
        if (list->running) {
            out.push_back(error(err::kDaqActive));
            return;
        }
        ptrList_ = get16(c + 2), ptrOdt_ = c[4], ptrEntry_ = c[5];
        ptrValid_ = true;
        out.push_back(response({}));
        return;
    case cmd::kWriteDaq: {
        const uint8_t e = writeDaqEntry(c[1], c[2], c[3], get32(c + 4));
        out.push_back(e ? error(e) : response({}));
        return;
    }
    case cmd::kWriteDaqMultiple: {
        const size_t count = c[1];
        if (count == 0 || 2 + 8 * count > config_.maxCto) break;
        if (n < 2 + 8 * count) {
            out.push_back(error(err::kCmdSyntax));
            return;
        }
        for (size_t i = 0; i < count; ++i) {
            const uint8_t* e = c + 2 + 8 * i;
            if (const uint8_t code = writeDaqEntry(e[0], e[1], e[6], get32(e + 2))) {
                out.push_back(error(code));
                return;
            }
        }
        out.push_back(response({}));
        return;
    }
    case cmd::kSetDaqListMode: {
        if (!listArg(2, list)) break;
        const uint8_t mode = c[1];
        const uint16_t eventNumber = get16(c + 4);
        const uint8_t prescaler = c[6];
        if (eventNumber >= config_.events.size() || prescaler == 0 || (prescaler > 1 && !daq.prescaler)) break;
        // No STIM, no PID_OFF, no alternating; time stamps only with a clock.
        if ((mode & ~0x10) != 0 || ((mode & 0x10) && daq.timestampSize == 0)) {
            out.push_back(error(err::kModeNotValid));
            return;
        }
        if (list->running) {
            out.push_back(error(err::kDaqActive));
            return;
        }
        list->mode = daq.timestampFixed ? static_cast<uint8_t>(mode | 0x10) : mode;
        list->event = eventNumber;
        list->prescaler = prescaler;
        list->priority = c[7];
        out.push_back(response({}));
        return;
    }
    case cmd::kGetDaqListMode: {
        if (!listArg(2, list)) break;
        Bytes p{static_cast<uint8_t>(list->mode | (list->selected ? 0x40 : 0) | (list->running ? 0x80 : 0)), 0, 0};
        put16(p, list->event);
        p.push_back(list->prescaler);
        p.push_back(list->priority);
        out.push_back(response(p));
        return;
    }
    case cmd::kStartStopDaqList: {
        if (!listArg(2, list)) break;
        const uint8_t mode = c[1];
        if (mode > 2) {
            out.push_back(error(err::kModeNotValid));
            return;
        }
        if (mode != 0) {
            if (programming_) {
                out.push_back(error(err::kPgmActive));
                return;
            }
            if (const uint8_t e = checkListFits(*list)) {
                out.push_back(error(e));
                return;
            }
        }
        if (mode == 0) stopList(*list);
        if (mode == 1) startList(*list, nowUs);
        if (mode == 2) list->selected = true;
        out.push_back(response({firstPid(static_cast<size_t>(list - lists_.data()))}));
        return;
    }
    case cmd::kStartStopSynch: {
        const uint8_t mode = c[1];
        if (mode > 2) {
            out.push_back(error(err::kModeNotValid));
            return;
        }
        if (mode == 1) {
            if (programming_) {
                out.push_back(error(err::kPgmActive));
                return;
            }
            for (const DaqList& l : lists_) {
                if (!l.selected) continue;
                if (const uint8_t e = checkListFits(l)) {
                    out.push_back(error(e));
                    return;
                }
            }
        }
        for (DaqList& l : lists_) {
            if (mode == 0) stopList(l);
            if (mode == 1 && l.selected) startList(l, nowUs);
            if (mode == 2 && l.selected) stopList(l);
            if (mode != 0) l.selected = false;
        }
        out.push_back(response({}));
        return;
    }
    case cmd::kGetDaqClock: {
        Bytes p{0, 0, 0};
        put32(p, timestamp(nowUs));
        out.push_back(response(p));
        return;
    }
    case cmd::kReadDaq: {
        if (!ptrValid_ || ptrList_ >= lists_.size() || ptrOdt_ >= lists_[ptrList_].odts.size() ||
            ptrEntry_ >= lists_[ptrList_].odts[ptrOdt_].entries.size())
            break;
        const Entry& e = lists_[ptrList_].odts[ptrOdt_].entries[ptrEntry_];
        Bytes p{e.bit, e.size, e.ext};
        put32(p, e.address);
        ++ptrEntry_;
        out.push_back(response(p));
        return;
    }
    case cmd::kGetDaqProcessorInfo: {
        const uint8_t props = static_cast<uint8_t>((daq.dynamic ? 0x01 : 0) | (daq.prescaler ? 0x02 : 0) |
                                                   (daq.timestampSize ? 0x10 : 0));
        Bytes p{props};
        put16(p, static_cast<uint16_t>(daq.dynamic ? daq.maxLists : lists_.size()));
        put16(p, static_cast<uint16_t>(config_.events.size()));
        p.push_back(0);  // no predefined lists
        p.push_back(0);  // absolute ODT numbers, free address extensions
        out.push_back(response(p));
        return;
    }
    case cmd::kGetDaqResolutionInfo: {
        const uint8_t tsMode = static_cast<uint8_t>(daq.timestampSize | (daq.timestampFixed ? 0x08 : 0) |
                                                    (daq.timestampUnit << 4));
        Bytes p{1, static_cast<uint8_t>(daq.maxEntrySize / config_.granularity), 1, 0, tsMode};
        put16(p, daq.timestampTicks);
        out.push_back(response(p));
        return;
    }
    case cmd::kGetDaqListInfo: {
        if (!listArg(2, list)) break;
        size_t entries = 0;
        for (const Odt& odt : list->odts) entries = std::max(entries, odt.entries.size());
        Bytes p{0x04, static_cast<uint8_t>(list->odts.size()), static_cast<uint8_t>(entries)};
        put16(p, 0);
        out.push_back(response(p));
        return;
    }
    case cmd::kGetDaqEventInfo: {
        const uint16_t number = get16(c + 2);
        if (number >= config_.events.size()) break;
        const XcpSlaveEvent& ev = config_.events[number];
        // The period in the coarsest unit that keeps it whole and within a byte.
        uint32_t cycle = ev.periodMs;
        uint8_t unit = 6;  // 1 ms
        while (cycle > 255) {
            cycle /= 10;
            ++unit;
        }
        setMtaText(ev.name);
        out.push_back(response({0x04, ev.maxLists, static_cast<uint8_t>(ev.name.size()),
                                static_cast<uint8_t>(cycle), static_cast<uint8_t>(cycle ? unit : 0), ev.priority}));
        return;
    }
    case cmd::kFreeDaq:
        if (!daq.dynamic) {
            out.push_back(error(err::kCmdUnknown));
            return;
        }
        resetDaq();
        out.push_back(response({}));
        return;
    case cmd::kAllocDaq: {
        if (!daq.dynamic) {
            out.push_back(error(err::kCmdUnknown));
            return;
        }
        if (allocStage_ != 0) {
            out.push_back(error(err::kSequence));
            return;
        }
        const uint16_t count = get16(c + 2);
        if (count > daq.maxLists) {
            out.push_back(error(err::kMemoryOverflow));
            return;
        }
        lists_.assign(count, DaqList{});
        for (DaqList& l : lists_) l.canId = config_.slaveId;
        allocStage_ = 1;
        out.push_back(response({}));
        return;
    }
    case cmd::kAllocOdt: {
        if (!daq.dynamic) {
            out.push_back(error(err::kCmdUnknown));
            return;
        }
        if (allocStage_ != 1 && allocStage_ != 2) {
            out.push_back(error(err::kSequence));
            return;
        }
        if (!listArg(2, list)) break;
        const uint8_t count = c[4];
        size_t total = count;
        for (const DaqList& l : lists_) total += l.odts.size();
        if (!list->odts.empty()) {
            out.push_back(error(err::kSequence));
            return;
        }
        if (count > daq.maxOdts || total > 0xFC) {
            out.push_back(error(err::kMemoryOverflow));
            return;
        }
        list->odts.assign(count, Odt{});
        allocStage_ = 2;
        out.push_back(response({}));
        return;
    }
    case cmd::kAllocOdtEntry: {
        if (!daq.dynamic) {
            out.push_back(error(err::kCmdUnknown));
            return;
        }
        if (allocStage_ != 2 && allocStage_ != 3) {
            out.push_back(error(err::kSequence));
            return;
        }
        if (!listArg(2, list) || c[4] >= list->odts.size()) break;
        const uint8_t count = c[5];
        size_t total = count;
        for (const DaqList& l : lists_) {
            for (const Odt& o : l.odts) total += o.entries.size();
        }
        total -= list->odts[c[4]].entries.size();
        if (count > daq.maxEntries || total > daq.maxTotalEntries) {
            out.push_back(error(err::kMemoryOverflow));
            return;
        }
        list->odts[c[4]].entries.assign(count, Entry{});
        allocStage_ = 3;
        out.push_back(response({}));
        return;
    }
    default: out.push_back(error(err::kCmdUnknown)); return;
    }
    out.push_back(error(err::kOutOfRange));
}

void XcpSlaveCore::runEvent(uint16_t channel, int64_t atUs, std::vector<Frame>& out) {
    for (size_t i = 0; i < lists_.size(); ++i) {
        DaqList& list = lists_[i];
        if (!list.running || list.event != channel) continue;
        if (list.countdown > 0) {
            --list.countdown;
            continue;
        }
        list.countdown = static_cast<uint8_t>(list.prescaler - 1);
        bool first = true;
        const uint8_t pid0 = firstPid(i);
        for (size_t k = 0; k < list.odts.size(); ++k) {
            const Odt& odt = list.odts[k];
            if (std::none_of(odt.entries.begin(), odt.entries.end(), [](const Entry& e) { return e.size != 0; }))
                continue;
            Bytes p{static_cast<uint8_t>(pid0 + k)};
            if (first && (list.mode & 0x10)) {
                Bytes ts;
                put32(ts, timestamp(atUs));
                const size_t size = config_.daq.timestampSize;
                // The low bytes of the counter, in the slave's byte order.
                if (config_.motorola) {
                    p.insert(p.end(), ts.end() - static_cast<std::ptrdiff_t>(size), ts.end());
                } else {
                    p.insert(p.end(), ts.begin(), ts.begin() + static_cast<std::ptrdiff_t>(size));
                }
            }
            first = false;
            for (const Entry& e : odt.entries) {
                if (e.size == 0) continue;
                const size_t bytes = static_cast<size_t>(e.size) * config_.granularity;
                Bytes value;
                if (e.bit != 0xFF) {
                    Bytes word;
                    const bool ok = read(e.ext, e.address, 4, word, Access::Ecu) == 0;
                    value.assign(bytes, 0);
                    const uint8_t bitValue = ok ? static_cast<uint8_t>((get32(word.data()) >> e.bit) & 1) : 0;
                    value[config_.motorola ? bytes - 1 : 0] = bitValue;
                } else if (read(e.ext, e.address, bytes, value, Access::Ecu) != 0) {
                    value.assign(bytes, 0);
                }
                p.insert(p.end(), value.begin(), value.end());
            }
            out.push_back({list.canId, std::move(p)});
        }
    }
}

int64_t XcpSlaveCore::nextDue() const {
    int64_t due = delayed_.empty() ? kNever : delayed_.front().due;
    for (int64_t t : nextTick_) due = std::min(due, t);
    return due;
}

void XcpSlaveCore::poll(int64_t nowUs, std::vector<Frame>& out) {
    size_t taken = 0;
    while (taken < delayed_.size() && delayed_[taken].due <= nowUs) {
        out.push_back(std::move(delayed_[taken].frame));
        ++taken;
    }
    delayed_.erase(delayed_.begin(), delayed_.begin() + static_cast<std::ptrdiff_t>(taken));
    for (size_t ch = 0; ch < nextTick_.size(); ++ch) {
        int64_t& tick = nextTick_[ch];
        if (tick == kNever || tick > nowUs) continue;
        const int64_t period = static_cast<int64_t>(config_.events[ch].periodMs) * 1000;
        // Cycles missed while the thread was late are lost, as on a busy ECU: the last one runs.
        if (nowUs - tick >= period) tick += (nowUs - tick) / period * period;
        runEvent(static_cast<uint16_t>(ch), tick, out);
        tick += period;
        const bool anyRunning = std::any_of(lists_.begin(), lists_.end(), [&](const DaqList& l) {
            return l.running && l.event == ch;
        });
        if (!anyRunning) tick = kNever;
    }
}

bool XcpSlaveCore::trigger(uint16_t channel, int64_t nowUs, std::vector<Frame>& out) {
    if (channel >= config_.events.size()) return false;
    runEvent(channel, nowUs, out);
    return true;
}

// ---- programming ----

void XcpSlaveCore::programCommand(const uint8_t* c, size_t, std::vector<Frame>& out) {
    std::vector<size_t> sectors;  // the flash regions, in file order
    for (size_t i = 0; i < config_.regions.size(); ++i) {
        if (config_.regions[i].flash) sectors.push_back(i);
    }
    const uint8_t code = c[0];
    if (code == cmd::kGetPgmProcessorInfo) {
        out.push_back(response({0x03, static_cast<uint8_t>(sectors.size())}));  // absolute and functional
        return;
    }
    if (code == cmd::kGetSectorInfo) {
        const uint8_t mode = c[1], number = c[2];
        if (number >= sectors.size()) {
            out.push_back(error(err::kOutOfRange));
            return;
        }
        const XcpSlaveRegion& r = config_.regions[sectors[number]];
        if (mode == 2) {
            setMtaText(r.name);
            out.push_back(response({static_cast<uint8_t>(r.name.size())}));
        } else if (mode <= 1) {
            Bytes p{number, number, 0};
            put32(p, mode == 0 ? r.address : static_cast<uint32_t>(r.bytes.size() / config_.granularity));
            out.push_back(response(p));
        } else {
            out.push_back(error(err::kModeNotValid));
        }
        return;
    }
    if (code == cmd::kProgramStart) {
        if (std::any_of(lists_.begin(), lists_.end(), [](const DaqList& l) { return l.running; })) {
            out.push_back(error(err::kDaqActive));
            return;
        }
        programming_ = true;
        const uint8_t mode = static_cast<uint8_t>((config_.masterBlockMode ? 0x01 : 0) | (config_.slaveBlockMode ? 0x40 : 0));
        out.push_back(response({0, mode, config_.maxCto, config_.maxBs, config_.minSt, 0}));
        return;
    }
    if (!programming_) {
        out.push_back(error(err::kSequence));
        return;
    }
    switch (code) {
    case cmd::kProgramClear: {
        const uint8_t mode = c[1];
        if (mode == 1) {
            for (size_t i : sectors) std::fill(regions_[i].begin(), regions_[i].end(), 0xFF);
        } else if (mode == 0) {
            if (mtaKind_ != Mta::Memory) {
                out.push_back(error(err::kOutOfRange));
                return;
            }
            // Checked against the flash there is before anything is allocated for it.
            uint64_t flash = 0;
            for (size_t i : sectors) flash += config_.regions[i].bytes.size();
            const uint64_t wanted = static_cast<uint64_t>(get32(c + 4)) * config_.granularity;
            if (wanted > flash) {
                out.push_back(error(err::kOutOfRange));
                return;
            }
            const size_t bytes = static_cast<size_t>(wanted);
            const Bytes erased(bytes, 0xFF);
            if (const uint8_t e = write(mtaExt_, mtaAddress_, erased.data(), bytes, Access::Program)) {
                out.push_back(error(e));
                return;
            }
        } else {
            out.push_back(error(err::kModeNotValid));
            return;
        }
        out.push_back(response({}));
        return;
    }
    case cmd::kProgramReset:
        out.push_back(response({}));
        disconnect();
        return;
    case cmd::kProgramPrepare: out.push_back(response({})); return;
    case cmd::kProgramFormat:
        // Plain data only: no compression, encryption or other method.
        out.push_back(c[1] == 0 && c[2] == 0 && c[3] == 0 && c[4] == 0 ? response({}) : error(err::kOutOfRange));
        return;
    case cmd::kProgramVerify:
        out.push_back(c[1] <= 1 ? response({}) : error(err::kModeNotValid));
        return;
    default: out.push_back(error(err::kCmdUnknown)); return;
    }
}

}  // namespace hostxcp
