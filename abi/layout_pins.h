/* SPDX-License-Identifier: MIT */
/* The size of every public record and the offset of every field. The first number is that of the device, whose pointers
 * have 4 bytes; the second is that of machines with pointers of 8 bytes. Daemons and drivers rely on the first. The
 * library compiles this list, and so do the layout tests in C and C++: each source defines the PIN_ macros and then
 * includes it, so it has no include guard. The test build.records finds records and fields that are missing here. */

PIN_SIZE(value_payload_t, 8, 16);
PIN_FIELD(value_payload_t, words, 0, 0);
PIN_FIELD(value_payload_t, integer, 0, 0);
PIN_FIELD(value_payload_t, string, 0, 0);
PIN_FIELD(value_payload_t, symbol, 0, 0);

PIN_SIZE(value_t, 16, 24);
PIN_FIELD(value_t, payload, 0, 0);
PIN_FIELD(value_t, type, 8, 16);
PIN_FIELD(value_t, valid, 12, 20);
PIN_FIELD(value_t, allocated, 13, 21);

PIN_SIZE(sym_t, 40, 64);
PIN_FIELD(sym_t, next, 0, 0);
PIN_FIELD(sym_t, name, 4, 8);
PIN_FIELD(sym_t, content, 20, 32);
PIN_FIELD(sym_t, arg, 36, 56);

PIN_SIZE(kelo_dm_item_desc, 80, 88);
PIN_FIELD(kelo_dm_item_desc, item_table, 0, 0);
PIN_FIELD(kelo_dm_item_desc, item_key, 32, 32);
PIN_FIELD(kelo_dm_item_desc, type, 64, 64);
PIN_FIELD(kelo_dm_item_desc, def_value, 68, 72);
PIN_FIELD(kelo_dm_item_desc, def_type, 72, 80);
PIN_FIELD(kelo_dm_item_desc, len, 76, 84);

PIN_SIZE(kelo_dm_item, 84, 96);
PIN_FIELD(kelo_dm_item, id, 0, 0);
PIN_FIELD(kelo_dm_item, desc, 4, 8);

PIN_SIZE(kelo_dm_operations, 28, 56);
PIN_FIELD(kelo_dm_operations, write, 0, 0);
PIN_FIELD(kelo_dm_operations, read, 4, 8);
PIN_FIELD(kelo_dm_operations, clean, 8, 16);
PIN_FIELD(kelo_dm_operations, def_db_const, 12, 24);
PIN_FIELD(kelo_dm_operations, def_db_read, 16, 32);
PIN_FIELD(kelo_dm_operations, read_cfg_db_version, 20, 40);
PIN_FIELD(kelo_dm_operations, read_def_items_db_version, 24, 48);

PIN_SIZE(kelo_dm_handle, 32, 64);
PIN_FIELD(kelo_dm_handle, id, 0, 0);
PIN_FIELD(kelo_dm_handle, operations, 4, 8);

PIN_SIZE(kelo_dm_item_node, 12, 24);
PIN_FIELD(kelo_dm_item_node, link, 0, 0);
PIN_FIELD(kelo_dm_item_node, item, 8, 16);

PIN_SIZE(q_link_type, 8, 16);
PIN_FIELD(q_link_type, next_ptr, 0, 0);
PIN_FIELD(q_link_type, prev_ptr, 4, 8);

PIN_SIZE(q_type, 12 + sizeof(pthread_mutex_t), 24 + sizeof(pthread_mutex_t));
PIN_FIELD(q_type, link, 0, 0);
PIN_FIELD(q_type, cnt, 8, 16);
PIN_FIELD(q_type, lock, 12, 24);

PIN_SIZE(list_link_type, 4, 8);
PIN_FIELD(list_link_type, next, 0, 0);

PIN_SIZE(list_type, 16 + sizeof(pthread_mutex_t), 24 + sizeof(pthread_mutex_t));
PIN_FIELD(list_type, front, 0, 0);
PIN_FIELD(list_type, back, 4, 8);
PIN_FIELD(list_type, size, 8, 16);
PIN_FIELD(list_type, initialised, 12, 20);
PIN_FIELD(list_type, lock, 16, 24);

PIN_SIZE(ordered_list_link_type, 12, 24);
PIN_FIELD(ordered_list_link_type, next, 0, 0);
PIN_FIELD(ordered_list_link_type, prev, 4, 8);
PIN_FIELD(ordered_list_link_type, weight, 8, 16);

PIN_SIZE(ordered_list_type, 20 + sizeof(pthread_mutex_t), 32 + sizeof(pthread_mutex_t));
PIN_FIELD(ordered_list_type, front, 0, 0);
PIN_FIELD(ordered_list_type, back, 4, 8);
PIN_FIELD(ordered_list_type, size, 8, 16);
PIN_FIELD(ordered_list_type, order, 12, 20);
PIN_FIELD(ordered_list_type, initialised, 16, 24);
PIN_FIELD(ordered_list_type, lock, 20, 32);

PIN_SIZE(kelo_db_param, 20, 32);
PIN_FIELD(kelo_db_param, value, 0, 0);
PIN_FIELD(kelo_db_param, name, 4, 8);
PIN_FIELD(kelo_db_param, type, 8, 16);
PIN_FIELD(kelo_db_param, size, 12, 20);
PIN_FIELD(kelo_db_param, param_id, 16, 24);

PIN_SIZE(kelo_db_query, 8, 16);
PIN_FIELD(kelo_db_query, tbl_name, 0, 0);
PIN_FIELD(kelo_db_query, param_table, 4, 8);

PIN_SIZE(LogDiagDescriptor, 16, 24);
PIN_FIELD(LogDiagDescriptor, line, 0, 0);
PIN_FIELD(LogDiagDescriptor, subsystem, 2, 2);
PIN_FIELD(LogDiagDescriptor, mask, 4, 4);
PIN_FIELD(LogDiagDescriptor, format, 8, 8);
PIN_FIELD(LogDiagDescriptor, file, 12, 16);

PIN_SIZE(kelo_timer_span, 8, 8);
PIN_FIELD(kelo_timer_span, tv_sec, 0, 0);
PIN_FIELD(kelo_timer_span, tv_nsec, 4, 4);

PIN_SIZE(kelo_timer_callback, 8, 16);
PIN_FIELD(kelo_timer_callback, handler, 0, 0);
PIN_FIELD(kelo_timer_callback, arg, 4, 8);

PIN_SIZE(kelo_timer_info, 44, 72);
PIN_FIELD(kelo_timer_info, value, 0, 0);
PIN_FIELD(kelo_timer_info, interval, 8, 8);
PIN_FIELD(kelo_timer_info, cb, 16, 16);
PIN_FIELD(kelo_timer_info, link, 24, 32);
PIN_FIELD(kelo_timer_info, magic, 32, 48);
PIN_FIELD(kelo_timer_info, timer_id, 36, 56);
PIN_FIELD(kelo_timer_info, state, 40, 64);

PIN_SIZE(kelo_clk_time, 8, 8);
PIN_FIELD(kelo_clk_time, seconds, 0, 0);
PIN_FIELD(kelo_clk_time, microseconds, 4, 4);

PIN_SIZE(mytime, 12, 12);
PIN_FIELD(mytime, year, 0, 0);
PIN_FIELD(mytime, month, 2, 2);
PIN_FIELD(mytime, day, 3, 3);
PIN_FIELD(mytime, hour, 4, 4);
PIN_FIELD(mytime, minute, 5, 5);
PIN_FIELD(mytime, second, 6, 6);
PIN_FIELD(mytime, millisecond, 8, 8);
PIN_FIELD(mytime, weekday, 10, 10);

/* The constants of the command records include the one byte that follows each record. */
PIN_SIZE(kelo_cmd_q_data, 44, 88);
PIN_VALUE(KELO_CMD_Q_DATA_SIZE, 45, 89);
PIN_FIELD(kelo_cmd_q_data, words_1_to_2, 0, 0);
PIN_FIELD(kelo_cmd_q_data, cmd_type, 8, 16);
PIN_FIELD(kelo_cmd_q_data, words_4_to_8, 12, 24);
PIN_FIELD(kelo_cmd_q_data, payload, 32, 64);
PIN_FIELD(kelo_cmd_q_data, words_10_to_11, 36, 72);

PIN_SIZE(kelo_cmd_table_entry, 12, 24);
PIN_FIELD(kelo_cmd_table_entry, words_1_to_2, 0, 0);
PIN_FIELD(kelo_cmd_table_entry, owned_3, 8, 16);

PIN_SIZE(kelo_cmd_table, 16, 32);
PIN_FIELD(kelo_cmd_table, count, 0, 0);
PIN_FIELD(kelo_cmd_table, entries, 4, 8);

PIN_SIZE(kelo_cmd_payload_0, 44, 88);
PIN_VALUE(KELO_CMD_PAYLOAD_0_SIZE, 45, 89);
PIN_FIELD(kelo_cmd_payload_0, words_1_to_4, 0, 0);
PIN_FIELD(kelo_cmd_payload_0, owned_5, 16, 32);
PIN_FIELD(kelo_cmd_payload_0, word_6, 20, 40);
PIN_FIELD(kelo_cmd_payload_0, owned_7, 24, 48);
PIN_FIELD(kelo_cmd_payload_0, words_8_to_10, 28, 56);
PIN_FIELD(kelo_cmd_payload_0, table_11, 40, 80);

PIN_SIZE(kelo_cmd_payload_5, 16, 32);
PIN_VALUE(KELO_CMD_PAYLOAD_5_SIZE, 17, 33);
PIN_FIELD(kelo_cmd_payload_5, words_1_to_2, 0, 0);
PIN_FIELD(kelo_cmd_payload_5, owned_3, 8, 16);
PIN_FIELD(kelo_cmd_payload_5, word_4, 12, 24);

PIN_SIZE(kelo_cmd_payload_13, 20, 40);
PIN_FIELD(kelo_cmd_payload_13, words_1_to_4, 0, 0);
PIN_FIELD(kelo_cmd_payload_13, owned_5, 16, 32);

PIN_SIZE(kelo_cmd_payload_15, 4, 8);
PIN_FIELD(kelo_cmd_payload_15, owned_1, 0, 0);

#ifndef KELO_NO_ADDITIONS
PIN_SIZE(kelo_log_rate, 28, 28);
PIN_FIELD(kelo_log_rate, interval_ms, 0, 0);
PIN_FIELD(kelo_log_rate, burst, 4, 4);
PIN_FIELD(kelo_log_rate, started_s, 8, 8);
PIN_FIELD(kelo_log_rate, started_ns, 12, 12);
PIN_FIELD(kelo_log_rate, passed, 16, 16);
PIN_FIELD(kelo_log_rate, left_out, 20, 20);
PIN_FIELD(kelo_log_rate, holder, 24, 24);
#endif

/* Exported data: each program that links to it contains its size. */
PIN_VALUE(sizeof log_msg, 4096, 4096);
PIN_VALUE(sizeof str_t, 128, 128);
PIN_VALUE(sizeof DB_CONFIG, 64, 64);
PIN_VALUE(sizeof DB_CONFIGBAK, 64, 64);
PIN_VALUE(sizeof DB_STATE, 64, 64);
PIN_VALUE(sizeof DB_DEF_ITEMS, 64, 64);
PIN_VALUE(sizeof DB_EXPORT_CSV, 64, 64);
PIN_VALUE(sizeof db_area, 50, 50);
PIN_VALUE(sizeof db_rst_bak, 64, 64);
PIN_VALUE(sizeof g_day_per_mon, 12, 12);
PIN_VALUE(sizeof kelo_dm_crc32_table, 1024, 1024);
PIN_VALUE(sizeof free_mutex, sizeof(pthread_mutex_t), sizeof(pthread_mutex_t));
PIN_VALUE(KELO_IRIG_B_CONFIG_SIZE, 50, 50);
