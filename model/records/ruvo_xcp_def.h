#pragma once
// The XCP master table as applets see it: slot 0 the owner, then the services in their fixed
// order. The slot types come with the XCP services.

#include "ruvo_com_def.h"

struct _KelnXcpFun {
    void* owner;  // 0
    RuvoSlot initialize_can;  // 1
    RuvoSlot uninitialize;  // 2
    RuvoSlot set_slave;  // 3
    RuvoSlot add_slave;  // 4
    RuvoSlot remove_slave;  // 5
    RuvoSlot get_error_text;  // 6
    RuvoSlot dequeue_packet;  // 7
    RuvoSlot reset_queue;  // 8
    RuvoSlot connect_ff;  // 9
    RuvoSlot disconnect_fe;  // 10
    RuvoSlot get_status_fd;  // 11
    RuvoSlot transport_layer_command_f2;  // 12
    RuvoSlot user_command_f1;  // 13
    RuvoSlot short_upload_f4;  // 14
    RuvoSlot short_upload_f4_ex;  // 15
    RuvoSlot upload_f5;  // 16
    RuvoSlot upload_f5_ex;  // 17
    RuvoSlot set_memory_transfer_address_f6;  // 18
    RuvoSlot get_seed_f8;  // 19
    RuvoSlot unlock_f7;  // 20
    RuvoSlot get_seed_ex_f8;  // 21
    RuvoSlot unlock_ex_f7;  // 22
    RuvoSlot get_comm_mode_info_fb;  // 23
    RuvoSlot get_daq_event_info_d7;  // 24
    RuvoSlot get_daq_list_info_d8;  // 25
    RuvoSlot get_daq_resolution_info_d9;  // 26
    RuvoSlot get_daq_processor_info_da;  // 27
    RuvoSlot start_stop_daq_list_de;  // 28
    RuvoSlot start_stop_synch_dd;  // 29
    RuvoSlot clear_daq_list_e3;  // 30
    RuvoSlot set_daq_list_mode_e0;  // 31
    RuvoSlot write_daq_list_entry_e1;  // 32
    RuvoSlot write_daq_list_entry_e1_ex;  // 33
    RuvoSlot set_daq_ptr_e2;  // 34
    RuvoSlot synchronize_fc;  // 35
    RuvoSlot get_identification_fa;  // 36
    RuvoSlot set_request_f9;  // 37
    RuvoSlot build_checksum_f3;  // 38
    RuvoSlot download_f0;  // 39
    RuvoSlot download_next_ef;  // 40
    RuvoSlot download_max_ee;  // 41
    RuvoSlot short_download_ed;  // 42
    RuvoSlot write_daq_list_entries_c7;  // 43
    RuvoSlot read_daq_list_entry_db;  // 44
    RuvoSlot get_daq_clock_dc;  // 45
    RuvoSlot get_daq_list_mode_df;  // 46
    RuvoSlot free_daq_lists_d6;  // 47
    RuvoSlot allocate_daq_lists_d5;  // 48
    RuvoSlot allocate_odt_d4;  // 49
    RuvoSlot allocate_odt_entry_d3;  // 50
    RuvoSlot modify_bits_ec;  // 51
    RuvoSlot get_paging_processor_info_e9;  // 52
    RuvoSlot get_segment_information_e8;  // 53
    RuvoSlot get_page_information_e7;  // 54
    RuvoSlot get_pgm_processor_info_ce;  // 55
    RuvoSlot get_sector_info_cd;  // 56
    RuvoSlot set_segment_mode_e6;  // 57
    RuvoSlot get_segment_mode_e5;  // 58
    RuvoSlot copy_calibration_page_e4;  // 59
    RuvoSlot get_calibration_page_ea;  // 60
    RuvoSlot set_calibration_page_eb;  // 61
    RuvoSlot program_start_d2;  // 62
    RuvoSlot program_clear_d1;  // 63
    RuvoSlot program_d0;  // 64
    RuvoSlot program_next_ca;  // 65
    RuvoSlot program_max_c9;  // 66
    RuvoSlot program_reset_cf;  // 67
    RuvoSlot program_verify_c8;  // 68
    RuvoSlot program_prepare_cc;  // 69
    RuvoSlot program_format_cb;  // 70
};

static_assert(sizeof(_KelnXcpFun) == 71 * sizeof(void*), "_KelnXcpFun has 71 slots");
