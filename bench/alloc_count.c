/* Preloaded into a benchmark host: counts calls of malloc, calloc and realloc
   and, at exit, writes the count to the file named by BENCH_ALLOC_COUNT. */
#include <stdio.h>
#include <stdlib.h>

extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* memory, size_t size);

static unsigned long allocations;

void* malloc(size_t size) {
  ++allocations;
  return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
  ++allocations;
  return __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size) {
  ++allocations;
  return __libc_realloc(memory, size);
}

__attribute__((destructor)) static void Report(void) {
  const char* path = getenv("BENCH_ALLOC_COUNT");
  if (path == NULL) return;
  unsigned long count = allocations;
  FILE* file = fopen(path, "w");
  if (file == NULL) return;
  fprintf(file, "%lu\n", count);
  fclose(file);
}
