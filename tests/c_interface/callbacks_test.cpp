#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/c_interface/program_store.h"

// What callbacks may do: call the library, change what is listed, close what is in use, throw.

namespace {

using Names = std::vector<std::string>;

void put_three(const char* owner) {
  for (const char* const name : {"a", "b", "c"})
    ASSERT_EQ(put(document(owner, name, 1, VU_AREA_USER), "1234"), VU_DONE);
}

vu_status each(const char* owner, vu_entry_visitor visit, void* context) {
  return vu_each_document(store(), VU_AREA_USER, owner, 0, visit, context);
}

}  // namespace

TEST(CCallbacks, MayRemoveWhatTheyAreTold) {
  put_three("back-remove");
  const auto remove = [](void* context, const vu_entry* entry) -> std::int32_t {
    const vu_document same = document(entry->owner, entry->name, entry->info.version, entry->area);
    *static_cast<int*>(context) += vu_remove(store(), &same) == VU_DONE;
    return 0;
  };
  int removed = 0;
  EXPECT_EQ(each("back-remove", remove, &removed), VU_DONE);
  EXPECT_EQ(removed, 3);
  EXPECT_EQ(documents_of("back-remove", VU_AREA_USER), Names{});
}

TEST(CCallbacks, MayListAgainAndStore) {
  put_three("back-nested");
  const auto nested = [](void* context, const vu_entry* entry) -> std::int32_t {
    auto* const names = static_cast<Names*>(context);
    const std::string copy = std::string(entry->name) + "-copy";
    if (put(document("back-copies", copy.c_str(), 1, VU_AREA_USER), "x") != VU_DONE) return 1;
    return each("back-nested", collect_entry, names) == VU_DONE ? 0 : 1;
  };
  Names names;
  EXPECT_EQ(each("back-nested", nested, &names), VU_DONE);
  EXPECT_EQ(names.size(), 9U);
  EXPECT_EQ(documents_of("back-copies", VU_AREA_USER), (Names{"a-copy@1", "b-copy@1", "c-copy@1"}));
}

TEST(CCallbacks, CannotCloseTheStoreThatCallsThem) {
  put_three("back-close");
  vu_status status = VU_FAILED;
  vu_store* const own = program_store().open(0, 0, status);
  struct Context {
    vu_store* store;
    vu_status closed;
  } context = {own, VU_DONE};
  const auto close = [](void* given, const vu_entry*) -> std::int32_t {
    auto* const all = static_cast<Context*>(given);
    all->closed = vu_close_store(all->store);
    return 0;
  };
  EXPECT_EQ(vu_each_document(own, VU_AREA_USER, "back-close", 0, close, &context), VU_DONE);
  EXPECT_EQ(context.closed, VU_BUSY);
  EXPECT_EQ(vu_close_store(own), VU_DONE);
}

TEST(CCallbacks, WhatTheyCallIsToldToThemAndNotToTheCaller) {
  put_three("back-errors");
  const auto fail_and_end = [](void* context, const vu_entry*) -> std::int32_t {
    const vu_document missing = document("back-errors", "..", 1);
    EXPECT_EQ(vu_exists(store(), &missing), VU_REFUSED);
    *static_cast<std::string*>(context) = last_error().operation;
    return 1;
  };
  std::string told;
  EXPECT_EQ(each("back-errors", fail_and_end, &told), VU_INTERRUPTED);
  EXPECT_EQ(told, "vu_exists");
  EXPECT_STREQ(last_error().operation, "vu_each_document");
  EXPECT_STREQ(last_error().text, "the callback ended the call");
  EXPECT_STREQ(last_error().path, "");
}

TEST(CCallbacks, AFailureAfterThemIsNotTheirs) {
  // The second folder of the list is the one that fails: its index is a folder.
  ASSERT_EQ(put(document("back-later", "a.kdf", 1), "x"), VU_DONE);
  Names folders = list_folder(program_store().root.path("storage\\docs\\back-later"));
  ASSERT_EQ(folders.size(), 1U);
  const std::string broken =
      program_store().root.path("storage\\docs\\back-later\\99999999\\index.dat");
  make_folder(program_store().root.path("storage\\docs\\back-later\\99999999"));
  make_folder(broken);
  const auto refused = [](void*, const vu_entry*) -> std::int32_t {
    const vu_document missing = document("back-later", "..", 1);
    EXPECT_EQ(vu_exists(store(), &missing), VU_REFUSED);
    return 0;
  };
  EXPECT_EQ(vu_each_document(store(), VU_AREA_DOCS, "back-later", 0, refused, nullptr), VU_FAILED);
  EXPECT_STREQ(last_error().operation, "vu_each_document");
  EXPECT_NE(std::string(last_error().path).find("99999999"), std::string::npos)
      << last_error().text << last_error().path;
}

TEST(CCallbacks, AnExceptionOutOfOneEndsTheCallAndGivesTheStoreBack) {
  // It must not happen; where both sides have one runtime it is a failure like others.
  put_three("back-throw");
  vu_status status = VU_FAILED;
  vu_store* const own = program_store().open(0, 0, status);
  const auto raise = [](void*, const vu_entry*) -> std::int32_t { throw std::runtime_error("x"); };
  EXPECT_EQ(vu_each_document(own, VU_AREA_USER, "back-throw", 0, raise, nullptr), VU_FAILED);
  EXPECT_EQ(vu_close_store(own), VU_DONE);
  EXPECT_EQ(documents_of("back-throw", VU_AREA_USER).size(), 3U);
}
