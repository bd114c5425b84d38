/* What a process has paid when it comes to main: once with GIO alone, and once with the library linked, too,
 * of which nothing is called. Without arguments it notes how far its processor time is and becomes itself
 * anew.
 *
 * With "open" and the name of a library it tells what opening that takes of memory and heap instead. */

#include <dlfcn.h>
#include <gio/gio.h>
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#ifdef KX_LINKED
#include <KXPublisher/KXConstants.h>
#endif

static double processorMicroseconds(void) {
  struct timespec time;
  if (clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time) != 0) abort();
  return (double)time.tv_sec * 1e6 + (double)time.tv_nsec / 1e3;
}

/* The rest of the first line of a file that begins with a word. */
static double numberAfter(const char *file, const char *word) {
  char line[512];
  double number = -1;
  FILE *const open = fopen(file, "r");
  if (open == NULL) return number;
  while (number < 0 && fgets(line, sizeof line, open) != NULL) {
    if (strncmp(line, word, strlen(word)) == 0) number = strtod(line + strlen(word), NULL);
  }
  fclose(open);
  return number;
}

static double anonymousMemory(void) {
  return numberAfter("/proc/self/smaps_rollup", "Anonymous:");
}

static double liveHeap(void) {
  const struct mallinfo2 all = mallinfo2();
  return (double)all.uordblks + (double)all.hblkhd;
}

static int opening(const char *library) {
  const double memory = anonymousMemory();
  const double heap = liveHeap();
  if (dlopen(library, RTLD_NOW | RTLD_LOCAL) == NULL) return EXIT_FAILURE;
  printf("anonymous %.0f\n", anonymousMemory() - memory);
  printf("heap %.0f\n", liveHeap() - heap);
  return fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

/* Of each library the part that is read first is mapped once. */
static int libraries(void) {
  char line[4096 + 128];
  int count = 0;
  FILE *const maps = fopen("/proc/self/maps", "r");
  if (maps == NULL) return -1;
  while (fgets(line, sizeof line, maps) != NULL) {
    if (strstr(line, ".so") != NULL && strstr(line, " 00000000 ") != NULL) ++count;
  }
  fclose(maps);
  return count;
}

int main(int argc, char **argv) {
  const double now = processorMicroseconds();
  if (argc == 3 && strcmp(argv[1], "open") == 0) return opening(argv[2]);
  if (argc < 2) {
    char text[32];
    char *again[] = {argv[0], text, NULL};
    snprintf(text, sizeof text, "%.3f", now);
    execv("/proc/self/exe", again);
    return EXIT_FAILURE;
  }
  const double anonymous = anonymousMemory();
  const int count = libraries();
  printf("microseconds %.3f\n", now - strtod(argv[1], NULL));
  printf("anonymous %.0f\n", anonymous);
  printf("libraries %d\n", count);
  /* Both of them use what they link, or the linker would leave it out. */
  printf("GLib %u\n", glib_check_version(2, 0, 0) == NULL ? glib_major_version : 0);
  printf("GIO %d\n", g_io_error_from_errno(0) == G_IO_ERROR_FAILED);
#ifdef KX_LINKED
  printf("KXPublisher %d\n", loggingTimeInterval > 0);
#endif
  return fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
