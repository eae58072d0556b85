// The configuration image as a file: read with distrust, replaced as a whole.
#define _POSIX_C_SOURCE 200809L

#include <arpa/inet.h>
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

// The folder stays open and the names are relative to it: they are always in one folder, where a rename is atomic.
static struct {
  const char *path;  // as the user gave it
  int folder;
  char name[NAME_MAX + 1];
  char temporary[NAME_MAX + 1];  // the image while it is written
  char damaged[NAME_MAX + 1];    // the latest image that was found damaged
} image_file;

// Opens the folder part of `path`, which ends at `slash`, its last.
static int open_folder(const char *path, const char *slash) {
  char folder[PATH_MAX] = ".";
  if (slash != NULL) {
    const size_t length = slash == path ? 1 : (size_t)(slash - path);  // the root's name is the slash itself
    if (length >= sizeof folder) fail(ENDS_BAD_PATH, "%s: the path is too long", path);
    memcpy(folder, path, length);
    folder[length] = '\0';
  }
  const int opened = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (opened < 0) fail(ENDS_BAD_PATH, "%s: folder %s: %s", path, folder, strerror(errno));
  return opened;
}

void image_file_locate(const char *path) {
  const char *slash = strrchr(path, '/');
  const char *name = slash == NULL ? path : slash + 1;
  const int longest = NAME_MAX - 4;  // leaves room for what is appended below
  if (name[0] == '\0') fail(ENDS_BAD_PATH, "%s: names no file", path);
  if (strlen(name) > (size_t)longest) fail(ENDS_BAD_PATH, "%s: the name is too long", path);
  image_file.path = path;
  (void)snprintf(image_file.name, sizeof image_file.name, "%.*s", longest, name);
  (void)snprintf(image_file.temporary, sizeof image_file.temporary, "%.*s.tmp", longest, name);
  (void)snprintf(image_file.damaged, sizeof image_file.damaged, "%.*s.bad", longest, name);
  image_file.folder = open_folder(path, slash);
}

// ---- Saving
// ----------------------------------------------------------------------------------------------------------

static bool write_all(int file, const uint8_t *data, size_t size) {
  while (size > 0) {
    const ssize_t written = write(file, data, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    data += written;
    size -= (size_t)written;
  }
  return true;
}

// Returns 0, or the error number of the step that failed.
static int write_temporary(const uint8_t *image, uint32_t size) {
  // What a crash left there, or anybody put there, is not written to.
  (void)unlinkat(image_file.folder, image_file.temporary, 0);
  const int file = openat(image_file.folder, image_file.temporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0) return errno;
  const int error = write_all(file, image, size) && fsync(file) == 0 ? 0 : errno;
  const bool closed = close(file) == 0;  // some file systems tell only here that a write failed
  return error == 0 && !closed ? errno : error;
}

// The bytes are on the disk under another name before the image's name moves to them: at every moment, a loss of power
// included, that name stands for a whole image, the old or the new one. The store ignores the result of a save, so a
// failure is told here, and the daemon runs on with what it has in memory.
int32_t image_file_save(const uint8_t *image, uint32_t size) {
  int error = write_temporary(image, size);
  if (error == 0 && renameat(image_file.folder, image_file.temporary, image_file.folder, image_file.name) != 0) {
    error = errno;
  }
  if (error != 0) {
    (void)unlinkat(image_file.folder, image_file.temporary, 0);
    LOG(LOG_CONFIG, MUP_LOG_ERROR, "%s: not saved, the file stays as it was: %s", image_file.path, strerror(error));
    return -1;
  }
  // The new name is on the disk only when the folder is.
  if (fsync(image_file.folder) != 0) {
    LOG(LOG_CONFIG, MUP_LOG_WARNING, "%s: saved, but a power loss may undo it: %s", image_file.path, strerror(errno));
  }
  return 0;
}

// ---- Reading
// ---------------------------------------------------------------------------------------------------------

// Returns the number of bytes read, up to `size`, or -1.
static ssize_t read_all(int file, uint8_t *buffer, size_t size) {
  size_t length = 0;
  while (length < size) {
    const ssize_t got = read(file, buffer + length, size - length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    length += (size_t)got;
  }
  return (ssize_t)length;
}

// Returns the descriptor, or -1 if there is no such file.
static int open_image(void) {
  // O_NONBLOCK: a pipe that somebody put there must not make the open wait for its writer.
  const int file = openat(image_file.folder, image_file.name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (file < 0 && errno == ENOENT) return -1;
  if (file < 0) fail(ENDS_UNREADABLE, "%s: cannot be opened: %s", image_file.path, strerror(errno));
  struct stat status;
  if (fstat(file, &status) != 0) fail(ENDS_UNREADABLE, "%s: %s", image_file.path, strerror(errno));
  if (!S_ISREG(status.st_mode)) fail(ENDS_BAD_PATH, "%s: is no regular file", image_file.path);
  return file;
}

// The check is made here because tlv_load makes a blank image of whatever has no magic number. tlv_check in turn
// believes the length that the header states, so that is measured first.
static bool is_sound(uint8_t *image, size_t length) {
  const tlv_hdr *header = (const tlv_hdr *)image;
  bool is_whole = length >= sizeof *header;
  if (is_whole && ntohl(tlv_get_int(header->magic)) == TLV_MAGIC) {
    is_whole = ntohl(tlv_get_int(header->cfg_len)) <= length - sizeof *header;
  }
  if (!is_whole) {
    LOG(LOG_CONFIG, MUP_LOG_ERROR, "%s: cut short after %zu bytes", image_file.path, length);
    return false;
  }
  if (tlv_check(image) >= 0) return true;
  mu_printf("\r\n");  // the store's messages do not end their line
  return false;
}

static void put_damaged_image_aside(void) {
  LOG(LOG_CONFIG, MUP_LOG_ERROR, "%s: damaged, starting with defaults", image_file.path);
  if (renameat(image_file.folder, image_file.name, image_file.folder, image_file.damaged) != 0) {
    LOG(LOG_CONFIG, MUP_LOG_ERROR, "%s: could not be kept: %s", image_file.path, strerror(errno));
  } else {
    LOG(LOG_CONFIG, MUP_LOG_NOTICE, "%s: kept as %s", image_file.path, image_file.damaged);
  }
}

void image_file_read(uint8_t *buffer, uint32_t size, uint32_t max_size) {
  memset(buffer, 0, size);
  const int file = open_image();
  if (file < 0) {
    LOG(LOG_CONFIG, MUP_LOG_NOTICE, "%s: not there, first start", image_file.path);
    return;
  }
  const ssize_t length = read_all(file, buffer, size);
  if (length < 0) fail(ENDS_UNREADABLE, "%s: cannot be read: %s", image_file.path, strerror(errno));
  (void)close(file);  // read only: nothing left to lose
  if (length > max_size) fail(ENDS_TOO_LARGE, "%s: larger than %u bytes", image_file.path, max_size);
  if (is_sound(buffer, (size_t)length)) return;
  put_damaged_image_aside();
  memset(buffer, 0, size);
}
