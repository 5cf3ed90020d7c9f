/* Loaded with LD_PRELOAD into a host process, fills its disk: once VELMORA_WRITE_LIMIT bytes
 * have been written to regular files, further writes fail with ENOSPC, the bytes up to the limit
 * written. With VELMORA_WRITE_PAUSE set the process instead stops itself (SIGSTOP) at the limit,
 * those bytes on disk, and writes on normally once continued: the test can then kill it in the
 * middle of a write, or let two processes finish their writes together.
 *
 * It covers the entry point the library's writers reach: fwrite (the table file, the encoded
 * JPEG, and the encoders behind cv::imwrite). A writer that came to use another one would go
 * unhurt, and the fault tests, which expect the failure or the stop, would say so. The standard
 * streams and anything but regular files are left alone. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

static size_t (*nextFwrite)(const void*, size_t, size_t, FILE*);
static long long limit = -1; /* none */
static int pauseAtLimit;
static atomic_llong written;
static atomic_int paused;

__attribute__((constructor)) static void setUp(void) {
  nextFwrite = (size_t(*)(const void*, size_t, size_t, FILE*))dlsym(RTLD_NEXT, "fwrite");
  const char* text = getenv("VELMORA_WRITE_LIMIT");
  if (text != NULL) limit = atoll(text);
  pauseAtLimit = getenv("VELMORA_WRITE_PAUSE") != NULL;
}

/* How many of `size` further bytes to `fd` fit before the limit. */
static size_t allowance(int fd, size_t size) {
  struct stat status;
  if (limit < 0 || fd <= 2 || fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return size;
  const long long before = atomic_fetch_add(&written, (long long)size);
  if (before + (long long)size <= limit) return size;
  return before >= limit ? 0 : (size_t)(limit - before);
}

/* At the limit: 1 when the write goes on after a pause, 0 when it fails. */
static int reachLimit(void) {
  if (!pauseAtLimit) {
    errno = ENOSPC;
    return 0;
  }
  if (atomic_exchange(&paused, 1) == 0) raise(SIGSTOP);
  return 1;
}

size_t fwrite(const void* data, size_t size, size_t count, FILE* stream) {
  const size_t bytes = size * count;
  const size_t allowed = allowance(fileno(stream), bytes);
  if (allowed == bytes) return nextFwrite(data, size, count, stream);
  size_t done = nextFwrite(data, 1, allowed, stream);
  fflush(stream);
  if (reachLimit()) done += nextFwrite((const char*)data + done, 1, bytes - done, stream);
  return done / size;
}
