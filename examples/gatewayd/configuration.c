// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// gatewayd's settings, and the configuration image that keeps them, as a file.
#define _POSIX_C_SOURCE 200809L

#include <arpa/inet.h>
#include <err.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "gatewayd.h"
#include "tarn/platform.h"
#include "tarn/startup_cfg.h"

// The image as a file. All names are in one folder, where a rename is atomic.
static struct {
  const char *path;
  char temporary[PATH_MAX];  // the image while it is written
  char damaged[PATH_MAX];    // the latest image that was found damaged
  int folder;
} image_file;

static void locate_image(const char *path) {
  const char *slash = strrchr(path, '/');
  char folder[PATH_MAX] = ".";
  if (strlen(path) + sizeof ".tmp" > PATH_MAX) errx(ENDS_BAD_PATH, "%s: the path is too long", path);
  if (path[0] == '\0' || (slash != NULL && slash[1] == '\0')) errx(ENDS_BAD_PATH, "%s: names no file", path);
  if (slash != NULL) (void)snprintf(folder, sizeof folder, "%.*s", (int)(slash - path) + 1, path);
  image_file.path = path;
  (void)snprintf(image_file.temporary, PATH_MAX, "%s.tmp", path);
  (void)snprintf(image_file.damaged, PATH_MAX, "%s.bad", path);
  image_file.folder = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (image_file.folder < 0) err(ENDS_BAD_PATH, "%s: folder %s", path, folder);
}

// Returns 0 or the error number of the failed step.
static int write_temporary(const uint8_t *image, uint32_t size) {
  (void)unlink(image_file.temporary);  // never writes to a file of a crash or of another user
  const int file = open(image_file.temporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0) return errno;
  int error = 0;
  for (uint32_t done = 0; done < size && error == 0;) {
    const ssize_t written = write(file, image + done, size - done);
    if (written > 0) done += (uint32_t)written;
    if (written < 0 && errno != EINTR) error = errno;
  }
  if (error == 0 && fsync(file) != 0) error = errno;
  if (close(file) != 0 && error == 0) error = errno;  // some file systems report a failed write only here
  return error;
}

// A tlv_save_cb. The bytes are on the disk under another name before they get the image's name: at every moment, even
// after a power loss, that name refers to a whole image. The store ignores the result, so failures are reported here.
static int32_t save_image(const uint8_t *image, uint32_t size) {
  int error = write_temporary(image, size);
  if (error == 0 && rename(image_file.temporary, image_file.path) != 0) error = errno;
  if (error != 0) {
    (void)unlink(image_file.temporary);
    LOG(LOG_CONFIG, MUP_LOG_ERROR, "%s: not saved, the file stays as it was: %s", image_file.path, strerror(error));
    return -1;
  }
  if (fsync(image_file.folder) != 0) {  // only this writes the new name to the disk
    LOG(LOG_CONFIG, MUP_LOG_WARNING, "%s: saved, but a power loss may undo it: %s", image_file.path, strerror(errno));
  }
  return 0;
}

// An append may exceed the size given to the store by up to 16 bytes, so the given size is 16 bytes smaller than the
// buffer.
enum { BUFFER_SIZE = 4096, IMAGE_MAX_SIZE = BUFFER_SIZE - sizeof(tlv_hdr) };
static uint8_t buffer[BUFFER_SIZE];  // all zeros make a blank image
static tlv_inst *configuration;

// The size according to the header in `buffer`, which may be wrong.
static uint64_t image_size(void) {
  return ntohl(tlv_get_int(((const tlv_hdr *)buffer)->cfg_len)) + (uint64_t)sizeof(tlv_hdr);
}

// Fills `buffer` with the file, or with a blank image after a first start or if the file is damaged.
static void read_image(void) {
  const int file = open(image_file.path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);  // does not wait if it is a pipe
  if (file < 0 && errno == ENOENT) {
    LOG(LOG_CONFIG, MUP_LOG_NOTICE, "%s: not there, first start", image_file.path);
    return;
  }
  struct stat status;
  if (file < 0 || fstat(file, &status) != 0) err(ENDS_UNREADABLE, "%s: cannot be opened", image_file.path);
  if (!S_ISREG(status.st_mode)) errx(ENDS_BAD_PATH, "%s: is not a regular file", image_file.path);
  size_t length = 0;
  ssize_t got;
  while ((got = read(file, buffer + length, sizeof buffer - length)) != 0) {
    if (got > 0) length += (size_t)got;
    if (got < 0 && errno != EINTR) err(ENDS_UNREADABLE, "%s: cannot be read", image_file.path);
  }
  (void)close(file);
  if (length > IMAGE_MAX_SIZE) errx(ENDS_TOO_LARGE, "%s: larger than %d bytes", image_file.path, (int)IMAGE_MAX_SIZE);
  // tlv_load would make a blank image of data without the magic number, so tlv_check comes first. tlv_check trusts the
  // length in the header, so the length is checked before that.
  if (length >= sizeof(tlv_hdr) && image_size() <= length && tlv_check(buffer) >= 0) return;
  mu_printf("\r\n");  // the store's messages do not end with a line end
  const char *fate = rename(image_file.path, image_file.damaged) == 0 ? "kept as" : "but could not be kept as";
  LOG(LOG_CONFIG, MUP_LOG_ERROR, "%s: damaged, starting with defaults; %s %s", image_file.path, fate,
      image_file.damaged);
  memset(buffer, 0, sizeof buffer);
}

struct settings settings = {"gateway", "lo", 1000, 3, 0, 0};

// The fields of the image: each is a text, or a number with its range.
static const struct field {
  uint16_t key, size;
  char *text;
  uint32_t *number, least, most;
} fields[] = {
    {0x0101, TEXT_SIZE, settings.host_name, NULL, 0, 0}, {0x0102, 4, NULL, &settings.boot_count, 0, UINT32_MAX},
    {0x0201, TEXT_SIZE, settings.uplink, NULL, 0, 0},    {0x0202, 4, NULL, &settings.uplink_check_ms, 100, 3600000},
    {0x0203, 4, NULL, &settings.statistics_s, 1, 3600},  {0x0301, 4, NULL, &settings.collector, 0, UINT32_MAX},
};
enum { FIELDS = sizeof fields / sizeof fields[0] };

// The size of a field in the image; 0 if it is missing.
static uint32_t found_size(const struct field *field) {
  for (uint32_t i = 0; i < configuration->field_num; i++) {
    const tlv_field *found = configuration->field_tbl[i];
    if (ntohs(tlv_get_short(found->type)) == field->key) return ntohs(tlv_get_short(found->max_len));
  }
  return 0;
}

static void read_field(const struct field *field) {
  if (found_size(field) != field->size) return;
  uint32_t number = 0;
  if (field->text != NULL) {
    (void)tlv_read_buffer(configuration, field->key, field->size, field->text);
  } else if (tlv_read_int(configuration, field->key, &number) == 0 && number >= field->least && number <= field->most) {
    *field->number = number;
  } else {
    LOG(LOG_CONFIG, MUP_LOG_ERROR, "field 0x%04x: %u makes no sense, default used", field->key, number);
  }
}

// Checks before it writes: the store accepts two writes that break an image, a text of another size, and an append that
// makes the image too long to be loaded again.
static void write_field(const struct field *field) {
  const uint32_t found = found_size(field);
  const bool has_room = image_size() + sizeof(tlv_field) + field->size <= IMAGE_MAX_SIZE;
  const bool fits = found == field->size || (found == 0 && has_room);
  int32_t result = -1;
  if (fits && field->text == NULL) result = tlv_write_int(configuration, field->key, *field->number);
  if (fits && field->text != NULL) {
    result = tlv_write_buffer(configuration, field->key, TEXT_SIZE, TEXT_SIZE, (const uint8_t *)field->text);
  }
  if (result != 0) LOG(LOG_CONFIG, MUP_LOG_ERROR, "field 0x%04x has another size or finds no room", field->key);
}

void open_configuration(const char *path, const struct in_addr *collector) {
  locate_image(path);
  read_image();
  configuration = tlv_inst_init(buffer, IMAGE_MAX_SIZE, NULL);
  if (configuration == NULL || tlv_load(configuration) != 0) errx(ENDS_INTERNAL, "the configuration does not load");
  for (size_t i = 0; i < FIELDS; i++) read_field(&fields[i]);
  if (collector != NULL) settings.collector = ntohl(collector->s_addr);
  settings.boot_count++;
  for (size_t i = 0; i < FIELDS; i++) write_field(&fields[i]);
  // This last change writes everything to the file: until now there was no save function.
  configuration->save_cb = save_image;
  (void)tlv_write_version(configuration, 1);
}
