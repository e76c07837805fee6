// The host's diagnostic records: the owned buffer's rules, and the service record's layout,
// which must agree byte for byte with the record applets fill in.

#include "host/uds/uds_records.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>

#include "model/records/ruvo_basic_def.h"

namespace {

TEST(BigMessageDataTest, StartsEmptyWithEveryFieldZero) {
    BigMessageData big;
    EXPECT_EQ(big.reserved, 0u);
    EXPECT_EQ(big.len, 0u);
    EXPECT_EQ(big.data, nullptr);
    EXPECT_EQ(big.empty, 1);
}

TEST(BigMessageDataTest, AssignCopiesTheBytesAndClearsTheEmptyFlag) {
    const uint8_t bytes[] = {0x10, 0x03, 0xAA};
    BigMessageData big;
    ASSERT_EQ(AssignBigMessageData(&big, bytes, 3), 0);
    EXPECT_EQ(big.empty, 0);
    ASSERT_EQ(big.len, 3u);
    EXPECT_EQ(std::memcmp(big.data, bytes, 3), 0);
    EXPECT_NE(static_cast<const void*>(big.data), static_cast<const void*>(bytes));

    // Reassigning replaces the buffer, also from bytes inside the old one.
    ASSERT_EQ(big.assign(big.data + 1, 2), 0);
    EXPECT_EQ(big.len, 2u);
    EXPECT_EQ(big.data[0], 0x03);
    EXPECT_EQ(big.data[1], 0xAA);
}

TEST(BigMessageDataTest, AssignWithoutSourceGivesZeroedBytesAndNoLengthGivesNoBuffer) {
    BigMessageData big;
    ASSERT_EQ(big.assign(nullptr, 4), 0);
    ASSERT_EQ(big.len, 4u);
    for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(big.data[i], 0);
    ASSERT_EQ(big.assign(nullptr, 0), 0);
    EXPECT_EQ(big.data, nullptr);
    EXPECT_EQ(big.empty, 0);
}

TEST(BigMessageDataTest, NullTargetGivesMinusOne) {
    const uint8_t byte = 1;
    EXPECT_EQ(AssignBigMessageData(nullptr, &byte, 1), -1);
}

TEST(BigMessageDataTest, BufferThatCannotBeHadGivesMinusTwoAndLeavesTheRecordEmpty) {
    const uint8_t bytes[] = {1, 2, 3};
    BigMessageData big(bytes, 3);
    EXPECT_EQ(AssignBigMessageData(&big, nullptr, BigMessageData::kMaxLen + 1), -2);
    EXPECT_EQ(big.empty, 1);
    EXPECT_EQ(big.len, 0u);
    EXPECT_EQ(big.data, nullptr);
}

TEST(BigMessageDataTest, CopiesOwnTheirBufferAndMovesHandItOver) {
    const uint8_t bytes[] = {0x62, 0xF1, 0x90};
    BigMessageData original(bytes, 3);
    BigMessageData copy(original);
    ASSERT_EQ(copy.len, 3u);
    EXPECT_NE(copy.data, original.data);
    EXPECT_EQ(std::memcmp(copy.data, bytes, 3), 0);

    uint8_t* buffer = original.data;
    BigMessageData moved(std::move(original));
    EXPECT_EQ(moved.data, buffer);
    EXPECT_EQ(original.data, nullptr);
    EXPECT_EQ(original.empty, 1);

    BigMessageData assigned;
    assigned = moved;
    EXPECT_EQ(std::memcmp(assigned.data, bytes, 3), 0);
    assigned = BigMessageData();
    EXPECT_EQ(assigned.empty, 1);
    EXPECT_EQ(assigned.data, nullptr);
}

TEST(BigMessageDataTest, BufferFilledByTheCallerWithNewIsFreedByTheRecord) {
    // The library fills the record field by field with a new[] copy of its own.
    BigMessageData big;
    big.len = 2;
    big.data = new uint8_t[2]{0x3E, 0x00};
    big.empty = 0;
    BigMessageData copy(big);
    EXPECT_EQ(copy.data[0], 0x3E);
}

template <typename T>
constexpr bool kSigned = std::is_signed<std::remove_all_extents_t<T>>::value;

// Same place, width and signedness: the library hands the applet's record over unconverted.
#define EXPECT_SAME_OFFSET(hostType, hostField, modelType, modelField)                         \
    EXPECT_EQ(offsetof(hostType, hostField), offsetof(modelType, modelField)) << #hostField; \
    EXPECT_EQ(sizeof(hostType::hostField), sizeof(modelType::modelField)) << #hostField;     \
    EXPECT_EQ(kSigned<decltype(hostType::hostField)>, kSigned<decltype(modelType::modelField)>) << #hostField

TEST(DiagnosisRecordLayoutTest, ServiceRecordMatchesTheAppletRecordByteForByte) {
    EXPECT_EQ(sizeof(diagnosis::diagnosis_service_s), sizeof(keln_diagnosis_service_s));
    EXPECT_EQ(alignof(diagnosis::diagnosis_service_s), alignof(keln_diagnosis_service_s));
    EXPECT_EQ(sizeof(diagnosis::uds_s), sizeof(kelnuds_s));
    EXPECT_EQ(sizeof(diagnosis::DoCan), sizeof(_KelnDoCan));
    EXPECT_EQ(sizeof(diagnosis::CANBusCommItems), sizeof(KelnCANBusCommItems));
    EXPECT_EQ(sizeof(diagnosis::protocol_e), sizeof(kelnuds_protocol_e));
    EXPECT_EQ(diagnosis::PROTOCOL_DoCAN, PROTOCOL_DoCAN);

    EXPECT_SAME_OFFSET(diagnosis::diagnosis_service_s, appconfig, keln_diagnosis_service_s, appconfig);
    EXPECT_SAME_OFFSET(diagnosis::diagnosis_service_s, uds, keln_diagnosis_service_s, uds);
    EXPECT_SAME_OFFSET(diagnosis::uds_s, ptype, kelnuds_s, ptype);
    EXPECT_SAME_OFFSET(diagnosis::uds_s, p2time, kelnuds_s, p2time);
    EXPECT_SAME_OFFSET(diagnosis::uds_s, p2extend_time, kelnuds_s, p2extend_time);
    EXPECT_SAME_OFFSET(diagnosis::uds_s, protocol, kelnuds_s, protocol);

    EXPECT_SAME_OFFSET(diagnosis::DoCan, virutal_channel, _KelnDoCan, virutal_channel);
    EXPECT_SAME_OFFSET(diagnosis::DoCan, use_fun_addr, _KelnDoCan, use_fun_addr);
    EXPECT_SAME_OFFSET(diagnosis::DoCan, diagnose_type, _KelnDoCan, diagnose_type);
    EXPECT_SAME_OFFSET(diagnosis::DoCan, physical_address, _KelnDoCan, physical_address);
    EXPECT_SAME_OFFSET(diagnosis::DoCan, physical_address_type, _KelnDoCan, physical_address_type);
    EXPECT_SAME_OFFSET(diagnosis::DoCan, functional_address, _KelnDoCan, functional_address);
    EXPECT_SAME_OFFSET(diagnosis::DoCan, functional_address_type, _KelnDoCan, functional_address_type);
    EXPECT_SAME_OFFSET(diagnosis::DoCan, response_address, _KelnDoCan, response_address);
    EXPECT_SAME_OFFSET(diagnosis::DoCan, fill, _KelnDoCan, fill);
    EXPECT_SAME_OFFSET(diagnosis::DoCan, N_AE, _KelnDoCan, N_AE);
    EXPECT_SAME_OFFSET(diagnosis::DoCan, can_items, _KelnDoCan, can_items);

    using HostItems = diagnosis::CANBusCommItems;
    EXPECT_SAME_OFFSET(HostItems, physical_address_ext, KelnCANBusCommItems, physical_address_ext);
    EXPECT_SAME_OFFSET(HostItems, functional_address_ext, KelnCANBusCommItems, functional_address_ext);
    EXPECT_SAME_OFFSET(HostItems, response_address_ext, KelnCANBusCommItems, response_address_ext);
    EXPECT_SAME_OFFSET(HostItems, en_custom_send_frame_interval, KelnCANBusCommItems,
                       en_custom_send_frame_interval);
    EXPECT_SAME_OFFSET(HostItems, fd_en_brs, KelnCANBusCommItems, fd_en_brs);
    EXPECT_SAME_OFFSET(HostItems, max_len, KelnCANBusCommItems, max_len);
    EXPECT_SAME_OFFSET(HostItems, receive_frame_interval, KelnCANBusCommItems, receive_frame_interval);
    EXPECT_SAME_OFFSET(HostItems, send_frame_interval, KelnCANBusCommItems, send_frame_interval);
    EXPECT_SAME_OFFSET(HostItems, send_block_size, KelnCANBusCommItems, send_block_size);
    EXPECT_SAME_OFFSET(HostItems, fc_frame_after_interval, KelnCANBusCommItems, fc_frame_after_interval);
    EXPECT_SAME_OFFSET(HostItems, fd_max_dlc, KelnCANBusCommItems, fd_max_dlc);
    EXPECT_SAME_OFFSET(HostItems, fd_fill, KelnCANBusCommItems, fd_fill);
    EXPECT_SAME_OFFSET(HostItems, tx_dlc, KelnCANBusCommItems, tx_dlc);
    EXPECT_SAME_OFFSET(HostItems, reserved, KelnCANBusCommItems, reserved);
}

TEST(DiagnosisRecordLayoutTest, MappingInfoMatchesTheAppletRecord) {
    EXPECT_EQ(sizeof(UDSMappingInfo), sizeof(keln_uds_mapping_info));
    EXPECT_SAME_OFFSET(UDSMappingInfo, virutal_channel, keln_uds_mapping_info, virutal_channel);
    EXPECT_SAME_OFFSET(UDSMappingInfo, ECUCount, keln_uds_mapping_info, ECUCount);
    EXPECT_SAME_OFFSET(UDSMappingInfo, addr, keln_uds_mapping_info, addr);
    EXPECT_EQ(sizeof(UdsEcuDiagnoseId), sizeof(keln_uds_ecu_diagnose_id));
    EXPECT_SAME_OFFSET(UdsEcuDiagnoseId, ResponseID, keln_uds_ecu_diagnose_id, ResponseID);
    EXPECT_SAME_OFFSET(UdsEcuDiagnoseId, FunReqID, keln_uds_ecu_diagnose_id, FunReqID);
}

TEST(DiagnosisRecordLayoutTest, NewRecordIsZeroed) {
    diagnosis::diagnosis_service_s service;
    const auto* bytes = reinterpret_cast<const uint8_t*>(&service);
    // Padding aside, every field reads zero.
    EXPECT_EQ(service.appconfig.channel, 0);
    for (std::size_t i = offsetof(diagnosis::diagnosis_service_s, uds); i < sizeof(service); ++i)
        ASSERT_EQ(bytes[i], 0) << "byte " << i;
}

}  // namespace
