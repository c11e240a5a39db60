/* SPDX-License-Identifier: MIT */
/* A daemon that knows nothing of the library's headers and has functions of its own whose names are exports of the
 * library. It uses the store by prototypes of its own. Exit status: 0, or the line of the first claim that failed. */
#include <stdint.h>
#include <string.h>

/* --- Names that happen to be those of exports --------------------------------------------------------------- */

static int calls;

int check_database_health(const char* patient) {
  ++calls;
  return patient == NULL ? 3 : -7;
}

int get_tid(void) {
  ++calls;
  return -1;
}

void* symLookup(int table, const char* name) {
  ++calls;
  return table == 0 && name == NULL ? &calls : NULL;
}

int symOpen(int size) {
  calls += size;
  return -1;
}

void* q_get(void* queue) {
  ++calls;
  return queue;
}

int q_put(void* queue) {
  ++calls;
  return queue == NULL;
}

uint32_t kelo_dm_Crc32Calc(const char* text) {
  calls += text == NULL;
  return 0x4e4f4e53;
}

int kelo_system_call(const char* text) {
  ++calls;
  return text == NULL ? 1 : 2;
}

int dm_write_db(void) {
  ++calls;
  return -9;
}

/* --- The store, as its documentation describes it ------------------------------------------------------------ */

struct item {
  int32_t id;
  struct {
    char table[32];
    char key[32];
    int32_t type;
    intptr_t value;
    int32_t declared_type;
    int32_t length;
  } desc;
};

struct handle {
  int32_t id;
  void (*operations[7])(void);
};

struct handle* kelo_dm_reg(int32_t id);
int32_t kelo_dm_reg_def_items(struct item* items);
int32_t kelo_dm_write(struct handle* store, int32_t id, const void* data, int32_t length);
int32_t kelo_dm_read_db(struct handle* store, int32_t id, void* buffer, int32_t size);
void sqlite_reg(void (**operations)(void));

static struct item items[] = {{7, {"NET_TAB", "SSID", 5, (intptr_t) "home", 5, 4}},
                              {-1, {"", "", 0, 0, 0, 0}}};

#define CLAIM(condition)               \
  do {                                 \
    if (!(condition)) return __LINE__; \
  } while (0)

int main(void) {
  char value[16] = "";
  struct handle* const store = kelo_dm_reg(1);
  CLAIM(store != NULL);
  sqlite_reg(store->operations);
  CLAIM(kelo_dm_reg_def_items(items) == 0);
  CLAIM(kelo_dm_write(store, 7, "cabin", 5) == 0);
  CLAIM(kelo_dm_read_db(store, 7, value, sizeof value) == 0);
  CLAIM(strcmp(value, "cabin") == 0);
  CLAIM(calls == 0);
  return 0;
}
