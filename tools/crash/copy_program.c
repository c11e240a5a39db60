/* A small `cp` for the restarts, which are many: it makes the same calls on the files as the real one, which the
 * histories are recorded with, and starts faster. */
#define _GNU_SOURCE
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static int open_target(const char* path, mode_t mode) {
  const int target = open(path, O_WRONLY | O_TRUNC);
  return target >= 0 ? target : open(path, O_WRONLY | O_CREAT | O_EXCL, mode);
}

int main(int count, char** arguments) {
  struct stat status;
  ssize_t copied = 0;
  if (count != 3) return 2;
  const int source = open(arguments[1], O_RDONLY);
  if (source < 0 || fstat(source, &status) != 0) return 1;
  const int target = open_target(arguments[2], status.st_mode & 07777);
  if (target < 0) return 1;
  do {
    copied = copy_file_range(source, NULL, target, NULL, 1 << 30, 0);
  } while (copied > 0);
  return copied == 0 && close(target) == 0 ? 0 : 1;
}
