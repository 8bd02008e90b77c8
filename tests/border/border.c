/* A C99 program that uses the C interface: border ROOT */
#include <stdio.h>
#include <string.h>

#include "vu/storage.h"

static int32_t count(void* context, const vu_entry* entry) {
  int* const number = context;
  *number += entry->info.size == 5;
  return 0;
}

int main(int argc, char** argv) {
  vu_settings settings = VU_SETTINGS_INIT;
  vu_document report = VU_DOCUMENT_INIT;
  vu_error error = VU_ERROR_INIT;
  vu_store* store = NULL;
  void* bytes = NULL;
  size_t size = 0;
  int number = 0;

  if (argc != 2 || vu_version_number() != VU_VERSION_NUMBER) return 2;
  settings.root = argv[1];
  settings.flags = VU_MAKE_ROOT;
  if (vu_open_store(&settings, &store) != VU_DONE) return 3;

  report.owner = "anna";
  report.name = "report.kdf";
  report.version = 20240501;
  if (vu_put(store, &report, "Hello", 5, VU_REPLACE, NULL) != VU_DONE) return 4;
  if (vu_read_whole(store, &report, &bytes, &size) != VU_DONE) return 5;
  if (size != 5 || strcmp(bytes, "Hello") != 0) return 6;
  vu_free(bytes);
  if (vu_each_document(store, VU_AREA_DOCS, "anna", VU_WITH_INFO, count, &number) != VU_DONE ||
      number != 1)
    return 7;
  report.name = "../report.kdf";
  if (vu_exists(store, &report) != VU_REFUSED) return 8;
  if (vu_last_error(&error) != VU_DONE || error.text[0] == '\0') return 9;
  if (vu_close_store(store) != VU_DONE) return 10;
  if (vu_close_store(store) != VU_BAD_HANDLE) return 11;
  puts("the border holds");
  return 0;
}
