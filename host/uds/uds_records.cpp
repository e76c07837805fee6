#include "host/uds/uds_records.h"

#include <new>
#include <utility>

BigMessageData::BigMessageData(const void* source, uint32_t length) {
    assign(source, length);
}

BigMessageData::BigMessageData(const BigMessageData& other) {
    if (!other.empty) assign(other.data, other.len);
    reserved = other.reserved;
}

BigMessageData::BigMessageData(BigMessageData&& other) noexcept
    : reserved(other.reserved), len(other.len), data(other.data), empty(other.empty) {
    other.data = nullptr;
    other.clear();
}

BigMessageData& BigMessageData::operator=(const BigMessageData& other) {
    if (this == &other) return *this;
    if (other.empty) {
        clear();
    } else {
        assign(other.data, other.len);
    }
    reserved = other.reserved;
    return *this;
}

BigMessageData& BigMessageData::operator=(BigMessageData&& other) noexcept {
    if (this == &other) return *this;
    delete[] data;
    reserved = other.reserved;
    len = other.len;
    data = other.data;
    empty = other.empty;
    other.data = nullptr;
    other.clear();
    return *this;
}

BigMessageData::~BigMessageData() {
    delete[] data;
}

int BigMessageData::assign(const void* source, uint32_t length) {
    // The source may lie inside the old buffer: copy before letting it go.
    uint8_t* fresh = nullptr;
    if (length > 0) {
        fresh = length <= kMaxLen ? new (std::nothrow) uint8_t[length]() : nullptr;
        if (fresh == nullptr) {
            clear();
            return -2;
        }
        if (source != nullptr) std::memcpy(fresh, source, length);
    }
    delete[] data;
    data = fresh;
    len = length;
    empty = 0;
    return 0;
}

void BigMessageData::clear() {
    delete[] data;
    reserved = 0;
    len = 0;
    data = nullptr;
    empty = 1;
}

int AssignBigMessageData(BigMessageData* target, const void* source, uint32_t length) {
    if (target == nullptr) return -1;
    return target->assign(source, length);
}
