// The settings: typed fields of the configuration image, each with a default.
#define _POSIX_C_SOURCE 200809L

#include "gatewayd.h"

#include <arpa/inet.h>
#include <inttypes.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>

#include "tarn/platform.h"

enum {
  FIELD_HOST_NAME = 0x0101,
  FIELD_BOOT_COUNT = 0x0102,
  FIELD_UPLINK = 0x0201,
  FIELD_UPLINK_CHECK_MS = 0x0202,
  FIELD_STATISTICS_S = 0x0203,
  FIELD_COLLECTOR = 0x0301,
  FIELD_LOG_LEVEL = 0x0302,
};

// The header's flag tells how the latest run ended.
enum { FLAG_ENDED_IN_ORDER = 0, FLAG_RUNNING = 1 };

// An append may end up to 16 bytes behind what the store was told, so it is told 16 bytes less than there are.
enum { BUFFER_SIZE = 4096, IMAGE_MAX_SIZE = BUFFER_SIZE - sizeof(tlv_hdr) };

static uint8_t buffer[BUFFER_SIZE];
static tlv_inst *configuration;

struct settings settings;

// ---- Fields
// ----------------------------------------------------------------------------------------------------------

// A failed read does not tell a missing field from one of another size, and writing a buffer field of another size
// would break the image: so each field is looked for before it is made.
static bool has_field(uint16_t field) {
  for (uint32_t i = 0; i < configuration->field_num; i++) {
    if (ntohs(tlv_get_short(configuration->field_tbl[i]->type)) == field) return true;
  }
  return false;
}

// An append is let through by the store even if it makes the image too long to be loaded again.
static bool has_room(size_t value_size) {
  const tlv_hdr *header = (const tlv_hdr *)configuration->base;
  return ntohl(tlv_get_int(header->cfg_len)) + sizeof *header + sizeof(tlv_field) + value_size <= IMAGE_MAX_SIZE;
}

static void complain(uint16_t field) {
  mu_printf("\r\n");  // the store's messages do not end their line
  LOG(LOG_CONFIG, MUP_LOG_ERROR, "field 0x%04x has another size or finds no room: its default is used", field);
}

// The next four give the field's value, or make the field with `value`, its default.

static uint32_t int_setting(uint16_t field, uint32_t value) {
  const bool good = has_field(field) ? tlv_read_int(configuration, field, &value) == 0
                                     : has_room(sizeof value) && tlv_write_int(configuration, field, value) == 0;
  if (!good) complain(field);
  return value;
}

static uint16_t short_setting(uint16_t field, uint16_t value) {
  const bool good = has_field(field) ? tlv_read_short(configuration, field, &value) == 0
                                     : has_room(sizeof value) && tlv_write_short(configuration, field, value) == 0;
  if (!good) complain(field);
  return value;
}

static uint8_t char_setting(uint16_t field, uint8_t value) {
  const bool good = has_field(field) ? tlv_read_char(configuration, field, &value) == 0
                                     : has_room(sizeof value) && tlv_write_char(configuration, field, value) == 0;
  if (!good) complain(field);
  return value;
}

// `text` holds `size` bytes and one more, for the NUL that a full field lacks.
static void text_setting(uint16_t field, char *text, uint32_t size, const char *value) {
  memset(text, 0, size + 1);
  const bool is_there = has_field(field);
  if (is_there && tlv_read_buffer(configuration, field, size, text) > 0) return;
  (void)snprintf(text, size, "%s", value);
  const int32_t length = (int32_t)strlen(text);
  const bool made =
      !is_there && has_room(size) && tlv_write_buffer(configuration, field, size, length, (const uint8_t *)text) == 0;
  if (!made) complain(field);
}

// A sound image may still hold a number that makes no sense.
static uint32_t in_range(const char *what, uint32_t value, uint32_t least, uint32_t most, uint32_t otherwise) {
  if (value >= least && value <= most) return value;
  LOG(LOG_CONFIG, MUP_LOG_ERROR, "%s: %" PRIu32 " makes no sense, %" PRIu32 " is used", what, value, otherwise);
  return otherwise;
}

static void read_settings(void) {
  text_setting(FIELD_HOST_NAME, settings.host_name, HOST_NAME_SIZE, "gateway");
  text_setting(FIELD_UPLINK, settings.uplink, INTERFACE_SIZE, "lo");
  const uint32_t check_ms = int_setting(FIELD_UPLINK_CHECK_MS, 1000);
  settings.uplink_check_ms = in_range("uplink check interval in ms", check_ms, 100, 3600000, 1000);
  const uint16_t statistics_s = short_setting(FIELD_STATISTICS_S, 3);
  settings.statistics_s = (uint16_t)in_range("statistics interval in s", statistics_s, 1, 3600, 3);
  const uint8_t log_level = char_setting(FIELD_LOG_LEVEL, MUP_LOG_INFO);
  settings.log_level = (uint8_t)in_range("log level", log_level, MUP_LOG_OFF, MUP_LOG_DEBUG, MUP_LOG_INFO);
  settings.collector = int_setting(FIELD_COLLECTOR, 0);
  settings.boot_count = int_setting(FIELD_BOOT_COUNT, 0);
}

// ---- Start and end
// ---------------------------------------------------------------------------------------------------

static void set_int(uint16_t field, uint32_t value) {
  // A field that could not be made must not be appended now either.
  if (has_field(field)) (void)tlv_write_int(configuration, field, value);
}

static void note_how_the_latest_run_ended(void) {
  uint8_t flag = FLAG_ENDED_IN_ORDER;
  (void)tlv_read_flag(configuration, &flag);
  if (flag == FLAG_RUNNING) LOG(LOG_MAIN, MUP_LOG_WARNING, "the latest run did not end in order");
}

void settings_open(const uint32_t *new_collector) {
  image_file_read(buffer, sizeof buffer, IMAGE_MAX_SIZE);
  // All of a start's changes reach the file at once, with the last of them: until then there is no save function.
  configuration = tlv_inst_init(buffer, IMAGE_MAX_SIZE, NULL);
  if (configuration == NULL || tlv_load(configuration) != 0) fail(ENDS_INTERNAL, "the configuration does not load");
  read_settings();
  note_how_the_latest_run_ended();

  if (new_collector != NULL) settings.collector = *new_collector;
  settings.boot_count++;
  set_int(FIELD_COLLECTOR, settings.collector);
  set_int(FIELD_BOOT_COUNT, settings.boot_count);
  configuration->save_cb = image_file_save;
  (void)tlv_write_flag(configuration, FLAG_RUNNING);
}

void settings_close(void) {
  (void)tlv_write_flag(configuration, FLAG_ENDED_IN_ORDER);
  mu_free(configuration->field_tbl);  // an instance is its owner's to free
  mu_free(configuration);
  configuration = NULL;
}
