/* SPDX-License-Identifier: MIT */
/* A small daemon that uses each part of the library once, and compares bytes and numbers with fixed ones. It needs the C
 * library and SQLite alone, so it runs where the other tests cannot be built. */
#define _POSIX_C_SOURCE 200809L
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sqlite3.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "kelo_utils/kelo_utils.h"
#include "timer_signals.h"

static int checks;
static int failures;

static void check(int holds, const char* what, int line) {
  ++checks;
  if (holds) return;
  ++failures;
  printf("smoke.c:%d: %s\n", line, what);
}
#define CHECK(condition) check((condition), #condition, __LINE__)

/* Whether the whole of a file is `text` and a line end. */
static int file_is(const char* path, const char* text) {
  char content[512] = "";
  return kelo_read_file(path, content, sizeof content - 1) == 0 && strcmp(content, text) == 0;
}

/* --- Settings --- */

enum { CHANNEL = 1203, SSID = 1204, NARROW = 1205, KEY = 1206, COUNTER = 9001 };
static const uint8_t key_bytes[4] = {0xDE, 0xAD, 0xBE, 0xEF};
static kelo_dm_item items[] = {
    KELO_DM_ITEM(CHANNEL, "NET_TAB", "CHANNEL", KELO_DM_TYPE_SCALAR3, 1500, 4),
    KELO_DM_TEXT_ITEM(SSID, "NET_TAB", "SSID", "home"),
    KELO_DM_ITEM(NARROW, "NET_TAB", "NARROW", KELO_DM_TYPE_SCALAR1, 7, 1),
    KELO_DM_BYTES_ITEM(KEY, "NET_TAB", "KEY", key_bytes),
    KELO_DM_END,
};
static int changes;

static int on_change(int32_t id, const void* data, int32_t len) {
  changes += id == SSID && len == 5 && memcmp(data, "cabin", 5) == 0;
  return 0;
}

static void try_settings(void) {
  char text[64];
  int32_t number = 0;
  int32_t length = 0;
  uint8_t narrow = 0;
  kelo_dm_handle* const store = kelo_dm_reg(0);
  CHECK(kelo_dm_reg_def_items(items) == 0);
  CHECK(kelo_dm_construct_def_database(0) == 0);
  kelo_dm_reg_event_callback(on_change);

  CHECK(kelo_dm_get(store, CHANNEL, &number, sizeof number, &length) == 0 && length == 4 && number == 1500);
  CHECK(kelo_dm_get(store, NARROW, &narrow, sizeof narrow, &length) == 0 && length == 1 && narrow == 7);
  CHECK(kelo_dm_get(store, KEY, text, sizeof text, &length) == 0 && length == 4 &&
        memcmp(text, key_bytes, 4) == 0);
  number = 0;
  CHECK(kelo_dm_def_items_read(store, CHANNEL, &items[0].desc, &number, sizeof number) == 4);
  CHECK(number == 1500);

  CHECK(kelo_dm_write_verified(store, SSID, "cabin", 5) == 0 && changes == 1);
  CHECK(kelo_dm_get(store, SSID, text, sizeof text, &length) == 0 && length == 5 &&
        memcmp(text, "cabin", 5) == 0);
  number = -1203;
  CHECK(kelo_dm_write_verified(store, CHANNEL, &number, sizeof number) == 0);
  number = 0;
  CHECK(kelo_dm_get(store, CHANNEL, &number, sizeof number, &length) == 0 && number == -1203);
  CHECK(dm_pal_check_db_health() == 0);

  number = 41;
  length = sizeof number;
  kelo_dm_wr_to_mem(COUNTER, &number, &length);
  number = 0;
  kelo_dm_rd_from_mem(COUNTER, &number, &length);
  CHECK(number == 41);
  CHECK(kelo_dm_unreg(store) == 0);
}

/* --- Parameters --- */

static const char folder[] = "/data/kelo-resource/sqlite3/";
static uint8_t enabled;
static int32_t power;
static uint64_t bands;
static char name[33];
static const kelo_db_param params[] = {
    {&enabled, "enabled", KELO_DB_TYPE_8BIT_0, sizeof enabled, 1},
    {&power, "power", KELO_DB_TYPE_32BIT_2, sizeof power, 2},
    {&bands, "bands", KELO_DB_TYPE_64BIT, sizeof bands, 3},
    {name, "name", KELO_DB_TYPE_TEXT, sizeof name, 4},
    {0},
};
static const kelo_db_query cell = {"cell", params};

static void try_parameters(void) {
  char path[128];
  sqlite3* factory = NULL;
  CHECK(dir_make_path(folder, 0755) == 0);
  snprintf(path, sizeof path, "%sfactory_info.db", folder);
  CHECK(sqlite3_open(path, &factory) == SQLITE_OK);
  CHECK(sqlite3_exec(factory,
                     "create table cell (enabled integer, power integer, bands integer, name text);"
                     "insert into cell values (1, -15, 2748779069572, 'cpe');",
                     NULL, NULL, NULL) == SQLITE_OK);
  sqlite3_close(factory);

  CHECK(kelo_db_query_db_init_struct(&cell) == 0);
  CHECK(enabled == 1 && power == -15 && bands == UINT64_C(2748779069572) && strcmp(name, "cpe") == 0);
  power = 200;
  CHECK(kelo_db_update_db_from_struct(&cell, 2) == 0);
  power = 0;
  CHECK(kelo_db_get_value("cell", "power", &power, KELO_DB_TYPE_32BIT_2, sizeof power) == 0 && power == 200);
  CHECK(kelo_db_reload_value(&cell, 2) == 0 && power == -15);
}

/* --- INI files --- */

static void try_ini(void) {
  static const char path[] = "/tmp/lan.ini";
  static const char first[] = "; the LAN side\n[lan]\nip = 192.168.8.1 ; bridge\n";
  char text[64];
  float ratio;
  CHECK(kelo_write_file_sync_create(path, first, sizeof first - 1) == 0);
  CHECK(ini_puts("lan", "name", "cabin; upstairs", path) == 1);
  CHECK(ini_putl("dhcp", "lease", 3600, path) == 1);
  CHECK(ini_putf("dhcp", "ratio", 0.25F, path) == 1);
  CHECK(ini_gets("LAN", "Name", "", text, sizeof text, path) == 15 && strcmp(text, "cabin; upstairs") == 0);
  ratio = ini_getf("dhcp", "ratio", 0, path);
  CHECK(ini_getl("dhcp", "lease", 0, path) == 3600 && ratio > 0.24F && ratio < 0.26F);
  CHECK(file_is(path,
                "; the LAN side\n[lan]\nip = 192.168.8.1 ; bridge\nname=\"cabin; upstairs\"\n"
                "[dhcp]\nlease=3600\nratio=0.250000"));
}

/* --- Timers --- */

/* The code that the signal of a timer has. */
static int code_of_timer(void) {
  const struct timespec longest = {10, 0};
  struct itimerspec soon = {{0, 0}, {0, 1}};
  struct sigevent notification;
  siginfo_t signal;
  sigset_t expiry;
  timer_t timer;
  memset(&notification, 0, sizeof notification);
  notification.sigev_notify = SIGEV_SIGNAL;
  notification.sigev_signo = SIGUSR2;
  sigemptyset(&expiry);
  sigaddset(&expiry, SIGUSR2);
  sigprocmask(SIG_BLOCK, &expiry, NULL);
  CHECK(timer_create(CLOCK_MONOTONIC, &notification, &timer) == 0 &&
        timer_settime(timer, 0, &soon, NULL) == 0);
  CHECK(sigtimedwait(&expiry, &signal, &longest) == SIGUSR2);
  timer_delete(timer);
  return signal.si_code;
}

static void tick(void* count) { __atomic_add_fetch((int*)count, 1, __ATOMIC_RELAXED); }

static void try_timers(void) {
  static int ticks;
  static kelo_timer_info timer;
  const struct timespec pause = {0, 10000000};
  const int code = code_of_timer();
  int waits;
  if (code != SI_TIMER) {
    printf("smoke: signals of timers have the code %d and not %d: the program changes it\n", code, SI_TIMER);
    take_for_timers(code);
  }
  timer.value.tv_nsec = timer.interval.tv_nsec = 20000000;
  timer.cb.handler = tick;
  timer.cb.arg = &ticks;
  kelo_timer_init();
  CHECK(kelo_timer_create(&timer) == 0 && kelo_timer_start(&timer) == 0);
  for (waits = 0; waits < 2000 && __atomic_load_n(&ticks, __ATOMIC_RELAXED) < 3; ++waits)
    nanosleep(&pause, NULL);
  CHECK(__atomic_load_n(&ticks, __ATOMIC_RELAXED) >= 3);
  CHECK(kelo_timer_gettime(&timer) == 0 && timer.interval.tv_sec == 0 && timer.interval.tv_nsec == 20000000);
  CHECK(kelo_timer_is_already_start(&timer) == 1);
  CHECK(kelo_timer_stop(&timer) == 0 && kelo_timer_is_already_start(&timer) == 0);
  CHECK(kelo_timer_delete(&timer) == 0);
}

/* --- The modem --- */

static const char reply[] = "AT+CGSN\r\r\n123\r\nOK\r\n";

/* Answers one command with its echo and a serial number. The result is 0 when the command was as expected. */
static int answer(int service) {
  char command[64] = "";
  struct sockaddr_in from;
  socklen_t size = sizeof from;
  const ssize_t length = recvfrom(service, command, sizeof command - 1, 0, (struct sockaddr*)&from, &size);
  if (length < 0 || sendto(service, reply, sizeof reply - 1, 0, (struct sockaddr*)&from, size) < 0) return 1;
  return strcmp(command, "AT+CGSN\r") != 0;
}

static void try_modem(void) {
  struct sockaddr_in address;
  const int service = socket(AF_INET, SOCK_DGRAM, 0);
  int status = -1;
  pid_t modem;
  char* text;
  memset(&address, 0, sizeof address);
  address.sin_family = AF_INET;
  address.sin_port = htons(5555);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  CHECK(bind(service, (const struct sockaddr*)&address, sizeof address) == 0);
  modem = fork();
  if (modem == 0) {
    alarm(30);
    _exit(answer(service));
  }
  text = kelo_util_send_at("at+cgsn\n");
  CHECK(text != NULL && strcmp(text, "123\r\nOK\r\n") == 0);
  free(text);
  CHECK(waitpid(modem, &status, 0) == modem && status == 0);
  close(service);
}

/* --- Text --- */

static void try_text(void) {
  static const uint8_t packed[] = {0xC8, 0x32, 0x9B, 0xFD, 0x06,
                                   0xDD, 0xDF, 0x72, 0x36, 0x19}; /* "Hello world" */
  static const char utf8[] =
      "plain text, gr\xC3\xBC\xC3\x9F"
      "e \xE2\x82\xAC";
  static const uint16_t utf16[] = {'p', 'l', 'a', 'i', 'n',  ' ',  't', 'e', 'x',   't',
                                   ',', ' ', 'g', 'r', 0xFC, 0xDF, 'e', ' ', 0x20AC};
  char text[64];
  uint8_t bytes[64];
  uint16_t units[32];
  const uint8_t* source = (const uint8_t*)utf8;
  uint16_t* target = units;
  const uint16_t* back = utf16;
  uint8_t* narrow = bytes;
  CHECK(kelo_strlcpy(text, "a long text", 5) == 11 && strcmp(text, "a lo") == 0);
  CHECK(hex_BinaryToString((const uint8_t*)"\x01\xAB\xFF", 3, text, sizeof text) == 6 &&
        strcmp(text, "01ABFF") == 0);
  CHECK(kelo_hex_StringToBinary("00112233445566778899aAbBcCdDeEfF0a", 34, bytes, sizeof bytes) == 17);
  CHECK(memcmp(bytes, "\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xAA\xBB\xCC\xDD\xEE\xFF\x0A", 17) == 0);
  CHECK(kelo_util_convert_gsm_def_alpha_string_to_utf8(packed, sizeof packed, text, sizeof text) >= 0);
  CHECK(strcmp(text, "Hello world") == 0);
  kelo_util_ConvertUTF8toUTF16(&source, source + sizeof utf8 - 1, &target, units + 32, KELO_UNICODE_STRICT);
  CHECK(target - units == 19 && memcmp(units, utf16, sizeof utf16) == 0);
  kelo_util_ConvertUTF16toUTF8(&back, utf16 + 19, &narrow, bytes + sizeof bytes, KELO_UNICODE_STRICT);
  CHECK(narrow - bytes == (ptrdiff_t)sizeof utf8 - 1 && memcmp(bytes, utf8, sizeof utf8 - 1) == 0);
}

/* --- Log, commands, files --- */

static char last_line[KELO_LOG_LINE_SIZE];
static void keep_line(const char* line) { kelo_strlcpy(last_line, line, sizeof last_line); }

static void try_log(void) {
  const char* message;
  set_print_interface(keep_line);
  kelo_set_log_tool_enable(0);
  KELO_LOG(LOG_LVL_ERR, "the number %d and the text %s\n", -7, "seven");
  message = strstr(last_line, "try_log");
  CHECK(strstr(last_line, " : =ERR= | [") != NULL && message != NULL);
  CHECK(message != NULL && ends_with(message, "the number -7 and the text seven\n", 0));
  KELO_LOG(LOG_LVL_DBUG, "below the threshold\n");
  CHECK(strstr(last_line, "threshold") == NULL);
  kelo_set_log_tool_enable(1);
}

static void try_commands(void) {
  char output[256] = "";
  CHECK(kelo_popen_call("echo from the shell", output, sizeof output) == 0);
  CHECK(strncmp(output, "from the shell", 14) == 0);
  CHECK(kelo_ds_system_call3("echo from a child", 0, output, sizeof output, 0) == 0);
  CHECK(strcmp(output, "from a child\n") == 0);
  /* It prints nothing and would run for long: it is killed. */
  CHECK(kelo_ds_system_call3("sleep 60", 0, NULL, 0, 0) == -1);
  CHECK(kelo_ioctl_file("/dev/null", 0x80045430, output) == -1);
  CHECK(get_days("2024-2-28", "2024-3-1") == 2);
}

int main(void) {
  kelo_set_log_level(LOG_LVL_EMR);
  try_settings();
  try_parameters();
  try_ini();
  try_timers();
  try_modem();
  try_text();
  try_commands();
  kelo_set_log_level(LOG_LVL_INFO);
  try_log();
  printf("smoke: %d checks, %d failed\n", checks, failures);
  return failures != 0;
}
