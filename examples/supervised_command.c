/* SPDX-License-Identifier: MIT */
/*
 * Supervised commands: a program without a shell, with a limit of time, captured output and its exit code.
 *
 * No shell reads the words, so that text from outside can be one of them. When the time is over, the program is
 * killed together with what it has started.
 *
 * Build: cc -o supervised_command supervised_command.c $(pkg-config --cflags --libs kelo_utils)
 *
 * Prints:
 *   echo: exit code 0, printed "a; rm -rf $HOME"
 *   test: exit code 1, printed ""
 *   sleep: killed after its time
 *   kill: ended by signal 15
 */
#include <kelo_utils/run.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void run(const char* const* words, int32_t timeout_ms) {
  char output[256];
  int32_t code = 0;
  switch (kelo_run(words, timeout_ms, output, sizeof output, &code)) {
    case KELO_RUN_EXITED:
      output[strcspn(output, "\n")] = '\0';
      printf("%s: exit code %d, printed \"%s\"\n", words[0], (int)code, output);
      break;
    case KELO_RUN_KILLED:
      printf("kill: ended by signal %d\n", (int)code);
      break;
    case KELO_RUN_TIMED_OUT:
      printf("%s: killed after its time\n", words[0]);
      break;
    case KELO_RUN_NOT_FOUND:
      printf("%s: there is no such program\n", words[0]);
      break;
    default:
      exit(EXIT_FAILURE);
  }
}

int main(void) {
  const char* const print[] = {"echo", "a; rm -rf $HOME", NULL};
  const char* const compare[] = {"test", "1", "-eq", "2", NULL};
  const char* const wait[] = {"sleep", "600", NULL};
  const char* const end[] = {"sh", "-c", "kill -TERM $$", NULL};
  run(print, 5000);
  run(compare, 5000);
  run(wait, 200);
  run(end, 5000);
  return EXIT_SUCCESS;
}
