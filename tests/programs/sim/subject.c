// A program that knows nothing of the shim, in the hands of tarn_sim_test.py: it makes the calls that it reads from
// standard input, a line each, and prints what came of each.
//
//   open VARIANT PATH         dup FD           close FD         access PATH      faccessat PATH   unlink PATH
//   unlinkat PATH             fopen VARIANT PATH                read FD SIZE
//   ioctl FD REQUEST HEX|-    the argument stands before a page that cannot be touched; '-' is a null pointer
//   socket DOMAIN PROTOCOL FLAGS               bind FD PORT SIZE FAMILY
//   select MS FD...           recv FD          send FD HEX      sendto ADDRESS PORT TEXT
//   thread COMMAND...         fork COMMAND...  real-time        catch SIGNAL     ignore SIGNAL    env NAME
//   ppid                      kill SIGNAL      exit STATUS

#define _GNU_SOURCE

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

enum { LONGEST = 16384, WORDS = 64 };

// Their declarations are in the headers of a fortified build alone.
int __open_2(const char *path, int flags);
int __open64_2(const char *path, int flags);
int __openat_2(int folder, const char *path, int flags);
int __openat64_2(int folder, const char *path, int flags);

static void tell(long result) {
  if (result < 0) {
    printf("%s\n", strerrorname_np(errno));
  } else {
    printf("%ld\n", result);
  }
}

static void tell_bytes(const unsigned char *bytes, long count) {
  for (long i = 0; i < count; i++) printf("%02x", bytes[i]);
  printf("\n");
}

static size_t from_hex(const char *hex, unsigned char *bytes) {
  size_t count = 0;
  unsigned value;
  while (sscanf(hex + 2 * count, "%2x", &value) == 1) bytes[count++] = (unsigned char)value;
  return count;
}

static int number(const char *word) { return (int)strtol(word, NULL, 0); }

static long open_variant(const char *variant, const char *path) {
  if (strcmp(variant, "open") == 0) return open(path, O_RDWR);
  if (strcmp(variant, "open64") == 0) return open64(path, O_RDWR);
  if (strcmp(variant, "openat") == 0) return openat(AT_FDCWD, path, O_RDWR);
  if (strcmp(variant, "openat64") == 0) return openat64(AT_FDCWD, path, O_RDWR);
  if (strcmp(variant, "__open_2") == 0) return __open_2(path, O_RDWR);
  if (strcmp(variant, "__open64_2") == 0) return __open64_2(path, O_RDWR);
  if (strcmp(variant, "__openat_2") == 0) return __openat_2(AT_FDCWD, path, O_RDWR);
  if (strcmp(variant, "__openat64_2") == 0) return __openat64_2(AT_FDCWD, path, O_RDWR);
  if (strcmp(variant, "creat") == 0) return creat(path, 0644);
  if (strcmp(variant, "creat64") == 0) return creat64(path, 0644);
  if (strcmp(variant, "nonblock") == 0) return open(path, O_RDWR | O_NONBLOCK);
  if (strcmp(variant, "cloexec") == 0) return fcntl(open(path, O_RDWR | O_CLOEXEC), F_GETFD);
  if (strcmp(variant, "inherited") == 0) return fcntl(open(path, O_RDWR), F_GETFD);
  abort();
}

// The first line, as a stream reads it.
static void do_fopen(const char *variant, const char *path) {
  FILE *file = strcmp(variant, "fopen64") == 0 ? fopen64(path, "re") : fopen(path, "r");
  char line[LONGEST];
  if (file == NULL) {
    tell(-1);
    return;
  }
  printf("%s", fgets(line, sizeof line, file) != NULL ? line : "nothing\n");
  fclose(file);
}

static void do_read(int fd, size_t size) {
  static char bytes[65536];
  const ssize_t got = read(fd, bytes, size < sizeof bytes ? size : sizeof bytes);
  if (got < 0) {
    tell(got);
  } else {
    printf("%zd ", got);
    tell_bytes((const unsigned char *)bytes, got);
  }
}

static void do_ioctl(int fd, unsigned long request, const char *hex) {
  if (strcmp(hex, "-") == 0) {
    tell(ioctl(fd, request, NULL));
    return;
  }
  unsigned char bytes[LONGEST / 2];
  const size_t size = from_hex(hex, bytes);
  const size_t page = (size_t)sysconf(_SC_PAGESIZE);
  const size_t room = (size + page) / page * page;
  unsigned char *map = mmap(NULL, room + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  mprotect(map + room, page, PROT_NONE);
  unsigned char *argument = map + room - size;
  memset(map, 0xEE, room - size);
  memcpy(argument, bytes, size);
  const int result = ioctl(fd, request, argument);
  printf("%s ", result < 0 ? strerrorname_np(errno) : "0");
  for (size_t i = 0; i < room - size; i++) {
    if (map[i] != 0xEE) printf("(written before it) ");
  }
  tell_bytes(argument, (long)size);
  munmap(map, room + page);
}

static void do_bind(int fd, unsigned port, socklen_t size, int family) {
  struct sockaddr_nl address[4] = {{.nl_family = (sa_family_t)family, .nl_pid = port}};
  tell(bind(fd, (const struct sockaddr *)address, size));
}

static void do_select(int ms, char **words, int count) {
  fd_set set;
  FD_ZERO(&set);
  for (int i = 0; i < count; i++) FD_SET(number(words[i]), &set);
  struct timeval timeout = {ms / 1000, ms % 1000 * 1000L};
  const int ready = select(FD_SETSIZE, &set, NULL, NULL, ms < 0 ? NULL : &timeout);
  if (ready < 0) {
    tell(ready);
    return;
  }
  printf("%d", ready);
  for (int fd = 0; fd < FD_SETSIZE; fd++) {
    if (ready > 0 && FD_ISSET(fd, &set)) printf(" %d", fd);
  }
  printf("\n");
}

// With a room for the sender as a netlink socket's, and a length that must not grow beyond it.
static void do_recv(int fd) {
  unsigned char bytes[65536];
  struct sockaddr_nl sender;
  socklen_t size = 0;
  const ssize_t got = recvfrom(fd, bytes, sizeof bytes, 0, (struct sockaddr *)&sender, &size);
  if (got < 0) {
    tell(got);
  } else {
    printf("%zd %u ", got, size);
    tell_bytes(bytes, got);
  }
}

static void do_send(int fd, const char *hex) {
  unsigned char bytes[LONGEST / 2];
  tell(send(fd, bytes, from_hex(hex, bytes), 0));
}

static void do_sendto(const char *address, int port, const char *text) {
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  struct sockaddr_in to = {.sin_family = AF_INET, .sin_port = htons((uint16_t)port)};
  inet_pton(AF_INET, address, &to.sin_addr);
  tell(sendto(sock, text, strlen(text), 0, (const struct sockaddr *)&to, sizeof to));
  close(sock);
}

static void *show_thread(void *unused) {
  (void)unused;
  pthread_attr_t attributes;
  size_t stack;
  pthread_getattr_np(pthread_self(), &attributes);
  pthread_attr_getstacksize(&attributes, &stack);
  int state;
  pthread_attr_getdetachstate(&attributes, &state);
  pthread_attr_destroy(&attributes);
  printf("policy %d stack %zu%s\n", sched_getscheduler(0), stack, state == PTHREAD_CREATE_JOINABLE ? "" : " detached");
  return NULL;
}

static void do_real_time(void) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 262144);
  pthread_attr_setschedpolicy(&attributes, SCHED_RR);
  const struct sched_param parameters = {.sched_priority = 80};
  pthread_attr_setschedparam(&attributes, &parameters);
  pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
  pthread_t thread;
  const int result = pthread_create(&thread, &attributes, show_thread, NULL);
  pthread_attr_destroy(&attributes);
  if (result != 0) {
    printf("%s\n", strerrorname_np(result));
  } else {
    pthread_join(thread, NULL);
  }
}

static void note(int number) {
  (void)number;
  (void)!write(STDOUT_FILENO, "caught\n", 7);
}

static void run(char **words, int count);

struct call {
  char **words;
  int count;
};

static void *run_call(void *call) {
  run(((struct call *)call)->words, ((struct call *)call)->count);
  return NULL;
}

// NOLINTNEXTLINE(misc-no-recursion): once for each word "thread" and "fork" of a line
static void run_elsewhere(char **words, int count, int forks) {
  struct call call = {words, count};
  pthread_t thread;
  if (!forks) {
    pthread_create(&thread, NULL, run_call, &call);
    pthread_join(thread, NULL);
    return;
  }
  fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    run(words, count);
    fflush(stdout);
    _exit(0);
  }
  waitpid(child, NULL, 0);
}

// NOLINTNEXTLINE(misc-no-recursion): as above
static void run(char **words, int count) {
  const char *verb = words[0];
  const int first = count > 1 ? number(words[1]) : 0;
  if (strcmp(verb, "open") == 0) {
    tell(open_variant(words[1], words[2]));
  } else if (strcmp(verb, "dup") == 0) {
    tell(dup(first));
  } else if (strcmp(verb, "close") == 0) {
    tell(close(first));
  } else if (strcmp(verb, "access") == 0) {
    tell(access(words[1], R_OK));
  } else if (strcmp(verb, "faccessat") == 0) {
    tell(faccessat(AT_FDCWD, words[1], R_OK, 0));
  } else if (strcmp(verb, "unlink") == 0) {
    tell(unlink(words[1]));
  } else if (strcmp(verb, "unlinkat") == 0) {
    tell(unlinkat(AT_FDCWD, words[1], 0));
  } else if (strcmp(verb, "fopen") == 0) {
    do_fopen(words[1], words[2]);
  } else if (strcmp(verb, "read") == 0) {
    do_read(first, (size_t)number(words[2]));
  } else if (strcmp(verb, "ioctl") == 0) {
    do_ioctl(first, strtoul(words[2], NULL, 0), words[3]);
  } else if (strcmp(verb, "socket") == 0) {
    tell(socket(first, SOCK_RAW | number(words[3]), number(words[2])));
  } else if (strcmp(verb, "bind") == 0) {
    do_bind(first, (unsigned)strtoul(words[2], NULL, 0), (socklen_t)number(words[3]), number(words[4]));
  } else if (strcmp(verb, "select") == 0) {
    do_select(first, words + 2, count - 2);
  } else if (strcmp(verb, "recv") == 0) {
    do_recv(first);
  } else if (strcmp(verb, "send") == 0) {
    do_send(first, words[2]);
  } else if (strcmp(verb, "sendto") == 0) {
    do_sendto(words[1], number(words[2]), words[3]);
  } else if (strcmp(verb, "thread") == 0 || strcmp(verb, "fork") == 0) {
    run_elsewhere(words + 1, count - 1, strcmp(verb, "fork") == 0);
  } else if (strcmp(verb, "real-time") == 0) {
    do_real_time();
  } else if (strcmp(verb, "catch") == 0) {
    tell(sigaction(first, &(struct sigaction){.sa_handler = note, .sa_flags = SA_RESTART}, NULL));
  } else if (strcmp(verb, "ignore") == 0) {
    tell(sigaction(first, &(struct sigaction){.sa_handler = SIG_IGN}, NULL));
  } else if (strcmp(verb, "env") == 0) {
    printf("%s\n", getenv(words[1]) != NULL ? getenv(words[1]) : "(not set)");
  } else if (strcmp(verb, "ppid") == 0) {
    tell(getppid());
  } else if (strcmp(verb, "kill") == 0) {
    raise(first);
  } else if (strcmp(verb, "exit") == 0) {
    exit(first);
  } else {
    printf("?\n");
  }
}

int main(void) {
  char line[LONGEST];
  setvbuf(stdin, NULL, _IONBF, 0);
  printf("ready\n");
  while (fflush(stdout), fgets(line, sizeof line, stdin) != NULL) {
    char *words[WORDS];
    int count = 0;
    for (char *word = strtok(line, " \n"); word != NULL && count < WORDS; word = strtok(NULL, " \n")) {
      words[count++] = word;
    }
    if (count > 0) run(words, count);
  }
  return 0;
}
