// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The layout of every public structure, field by field: natural alignment on a 64-bit processor, fields in the order of
// their description. Compiled as C for each processor; there is nothing to run.

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include "tarn/containers.h"
#include "tarn/crypto.h"
#include "tarn/event.h"
#include "tarn/log.h"
#include "tarn/startup_cfg.h"
#include "tarn/timer.h"

#define SIZE(type, bytes) _Static_assert(sizeof(type) == (bytes), #type " takes " #bytes " bytes")
#define ALIGNMENT(type, bytes) _Static_assert(_Alignof(type) == (bytes), #type " is aligned to " #bytes " bytes")
#define FIELD(type, field, at, bytes)                                                    \
  _Static_assert(offsetof(type, field) == (at) && sizeof(((type *)0)->field) == (bytes), \
                 #type "." #field ": " #bytes " bytes at " #at)

// ---- Handles and callbacks: each one machine word ------------------------------------------------------------------

SIZE(mu_status_t, 4);
SIZE(mu_mutex_t, 8);
SIZE(mu_sem_t, 8);
SIZE(mu_spinlock_t, 8);
SIZE(mu_thread_entry_t, 8);
SIZE(mu_list_cmp_cb_t, 8);
SIZE(mu_list_trav_cb_t, 8);
SIZE(mu_hash_fn_t, 8);
SIZE(mu_hash_cmp_fn_t, 8);
SIZE(mu_timer_cb_t, 8);
SIZE(tlv_save_cb, 8);
SIZE(mup_log_level_hook, 8);
SIZE(mu_event_cb_t, 8);
SIZE(mu_event_hook_t, 8);
SIZE(mu_event_suprs_cb_t, 8);
SIZE(mu_event_cfg_handler_t, 8);

// ---- Containers ----------------------------------------------------------------------------------------------------

FIELD(mu_list_t, data_size, 0, 4);
FIELD(mu_list_t, count, 4, 4);
FIELD(mu_list_t, tail, 8, 8);
FIELD(mu_list_t, head, 16, 8);
FIELD(mu_list_t, cmp, 24, 8);
SIZE(mu_list_t, 32);

// The record directly follows these fields, so their size is part of the layout too.
FIELD(mu_list_node_t, data, 0, 8);
FIELD(mu_list_node_t, prev, 8, 8);
FIELD(mu_list_node_t, next, 16, 8);
SIZE(mu_list_node_t, 24);

FIELD(mu_lst_node, prev, 0, 8);
FIELD(mu_lst_node, next, 8, 8);
SIZE(mu_lst_node, 16);

FIELD(mu_lst, last, 0, 8);  // the tail first
FIELD(mu_lst, first, 8, 8);
FIELD(mu_lst, count, 16, 4);
SIZE(mu_lst, 24);

FIELD(mu_hash, size, 0, 4);
FIELD(mu_hash, lock, 8, 8);
FIELD(mu_hash, hash_fn, 16, 8);
FIELD(mu_hash, cmp_fn, 24, 8);
FIELD(mu_hash, count, 32, 4);
FIELD(mu_hash, buckets[0], 40, 24);
SIZE(mu_hash, 40);  // the buckets, 24 bytes each, follow

FIELD(mu_rbuf, rd, 0, 8);
FIELD(mu_rbuf, wr, 8, 4);
FIELD(mu_rbuf, size, 12, 4);
FIELD(mu_rbuf, full, 16, 4);
FIELD(mu_rbuf, slots, 24, 8);
SIZE(mu_rbuf, 32);

// ---- Timer service -------------------------------------------------------------------------------------------------

FIELD(mu_timer_rec_t, interval, 0, 4);
FIELD(mu_timer_rec_t, remain, 4, 4);
FIELD(mu_timer_rec_t, callback, 8, 8);
FIELD(mu_timer_rec_t, arg, 16, 8);
FIELD(mu_timer_rec_t, type, 24, 4);
FIELD(mu_timer_rec_t, id, 28, 4);
FIELD(mu_timer_rec_t, running, 32, 4);
FIELD(mu_timer_rec_t, deleted, 36, 4);
FIELD(mu_timer_rec_t, stopped, 40, 4);
FIELD(mu_timer_rec_t, drain, 44, 4);
SIZE(mu_timer_rec_t, 48);

FIELD(mu_timer_info_t, list, 0, 8);
FIELD(mu_timer_info_t, tid, 8, 8);
FIELD(mu_timer_info_t, mutex, 16, 8);
FIELD(mu_timer_info_t, max_num, 24, 4);
FIELD(mu_timer_info_t, last_id, 28, 4);
FIELD(mu_timer_info_t, last_drain, 32, 4);
FIELD(mu_timer_info_t, max_drain, 36, 4);
FIELD(mu_timer_info_t, max_drain_cb, 40, 8);
FIELD(mu_timer_info_t, last_tick, 48, 8);
FIELD(mu_timer_info_t, expired, 56, 4);
SIZE(mu_timer_info_t, 64);  // 60, rounded up to the alignment of 8

SIZE(timer_info, 64);
SIZE(timer_initialized, 4);
SIZE(tmr_tid, 8);

// ---- Startup configuration -----------------------------------------------------------------------------------------

// These two are placed over an image at any address: they must not need alignment.
FIELD(tlv_hdr, magic, 0, 4);
FIELD(tlv_hdr, crc, 4, 2);
FIELD(tlv_hdr, active, 6, 1);
FIELD(tlv_hdr, flag, 7, 1);
FIELD(tlv_hdr, cfg_len, 8, 4);
FIELD(tlv_hdr, version, 12, 4);
SIZE(tlv_hdr, 16);
ALIGNMENT(tlv_hdr, 1);

FIELD(tlv_field, type, 0, 2);
FIELD(tlv_field, max_len, 2, 2);
SIZE(tlv_field, 4);
ALIGNMENT(tlv_field, 1);

FIELD(tlv_inst, base, 0, 8);
FIELD(tlv_inst, field_tbl, 8, 8);
FIELD(tlv_inst, field_num, 16, 4);
FIELD(tlv_inst, max_size, 20, 4);
FIELD(tlv_inst, save_cb, 24, 8);
SIZE(tlv_inst, 32);

// ---- Cryptography --------------------------------------------------------------------------------------------------

_Static_assert(sizeof(const_Rb) == 16, "const_Rb takes 16 bytes");

// ---- Log -----------------------------------------------------------------------------------------------------------

FIELD(mup_log_module, name, 0, 16);
FIELD(mup_log_module, record_level, 16, 1);
FIELD(mup_log_module, print_level, 17, 1);
FIELD(mup_log_module, enable, 18, 1);
SIZE(mup_log_module, 19);  // only bytes: no rounding, so the table of modules is packed

FIELD(mup_log_rec, module, 0, 1);
FIELD(mup_log_rec, level, 1, 1);
FIELD(mup_log_rec, line, 4, 4);
FIELD(mup_log_rec, time, 8, 8);
FIELD(mup_log_rec, text, 16, 256);
SIZE(mup_log_rec, 272);

FIELD(mup_log_usr_header, manufacturer, 0, 32);
FIELD(mup_log_usr_header, product_class, 32, 32);
FIELD(mup_log_usr_header, serial_number, 64, 32);
FIELD(mup_log_usr_header, ip, 96, 32);
FIELD(mup_log_usr_header, hw_ver, 128, 32);
FIELD(mup_log_usr_header, sw_ver, 160, 32);
SIZE(mup_log_usr_header, 192);

FIELD(mup_log_ctrl, inited, 0, 1);
FIELD(mup_log_ctrl, module_num, 1, 1);
FIELD(mup_log_ctrl, dirty, 2, 1);
FIELD(mup_log_ctrl, remote_mode, 3, 1);
FIELD(mup_log_ctrl, sys_idx, 4, 4);
FIELD(mup_log_ctrl, usr_idx, 8, 4);
FIELD(mup_log_ctrl, mutex, 16, 8);
FIELD(mup_log_ctrl, sock, 24, 4);
FIELD(mup_log_ctrl, modules, 32, 8);
FIELD(mup_log_ctrl, server_ip, 40, 4);
FIELD(mup_log_ctrl, level_hook, 48, 8);
FIELD(mup_log_ctrl, sys_ring, 56, 1024 * 272);
FIELD(mup_log_ctrl, usr_ring, 56 + 1024 * 272, 512 * 272);
FIELD(mup_log_ctrl, sys_path, 56 + 1536 * 272, 32);
FIELD(mup_log_ctrl, usr_path, 56 + 1536 * 272 + 32, 32);
FIELD(mup_log_ctrl, usr_header, 56 + 1536 * 272 + 64, 192);
SIZE(mup_log_ctrl, 56 + 1536 * 272 + 256);

// ---- Events --------------------------------------------------------------------------------------------------------

FIELD(mu_event_cfg_t, suprs_en, 0, 4);
FIELD(mu_event_cfg_t, threshold, 4, 4);
FIELD(mu_event_cfg_t, period, 8, 4);
SIZE(mu_event_cfg_t, 12);

// These two are passed to the kernel.
FIELD(mu_event_msg_t, op, 0, 4);
FIELD(mu_event_msg_t, type, 4, 4);
FIELD(mu_event_msg_t, reserved, 8, 4);
FIELD(mu_event_msg_t, suprs_en, 12, 4);
FIELD(mu_event_msg_t, threshold, 16, 4);
FIELD(mu_event_msg_t, period, 20, 4);
FIELD(mu_event_msg_t, count, 24, 4);
FIELD(mu_event_msg_t, clear, 28, 4);
SIZE(mu_event_msg_t, 32);

FIELD(mu_pal_hdr_t, reserved0, 0, 2);
FIELD(mu_pal_hdr_t, length, 2, 2);
FIELD(mu_pal_hdr_t, reserved4, 4, 2);
FIELD(mu_pal_hdr_t, event_type, 6, 2);
FIELD(mu_pal_hdr_t, reserved8, 8, 2);
FIELD(mu_pal_hdr_t, device_id, 10, 2);
FIELD(mu_pal_hdr_t, reserved12, 12, 8);
FIELD(mu_pal_hdr_t, destination, 20, 4);
SIZE(mu_pal_hdr_t, 24);

FIELD(mu_event_subscriber_t, type, 0, 4);
FIELD(mu_event_subscriber_t, cb, 8, 8);
SIZE(mu_event_subscriber_t, 16);

FIELD(mu_event_rec, registered, 0, 1);
FIELD(mu_event_rec, suprs_en, 1, 1);
FIELD(mu_event_rec, suprs_s, 2, 1);
FIELD(mu_event_rec, type, 4, 4);
FIELD(mu_event_rec, count, 8, 4);
FIELD(mu_event_rec, suprs_cnt, 12, 4);
FIELD(mu_event_rec, threshold, 16, 4);
FIELD(mu_event_rec, period_cnt, 20, 4);
FIELD(mu_event_rec, period, 24, 4);
FIELD(mu_event_rec, tick, 28, 4);
FIELD(mu_event_rec, cb_list, 32, 8);
FIELD(mu_event_rec, release_cb, 40, 8);
FIELD(mu_event_rec, suppress_cb, 48, 8);
FIELD(mu_event_rec, cookie, 56, 8);
FIELD(mu_event_rec, reserved, 64, 8);
SIZE(mu_event_rec, 72);

FIELD(mu_event_state_t, inited, 0, 4);
FIELD(mu_event_state_t, max_event_num, 4, 4);
FIELD(mu_event_state_t, lock, 8, 8);
FIELD(mu_event_state_t, poll_timer, 16, 4);
FIELD(mu_event_state_t, send_hook, 24, 8);
FIELD(mu_event_state_t, cfg_handler, 32, 8);
FIELD(mu_event_state_t, events, 40, 8);
SIZE(mu_event_state_t, 48);

SIZE(glb_evt, 48);
SIZE(evt_flag, 4);
SIZE(evt_dest, 4);
