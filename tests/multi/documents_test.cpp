// Documents between processes: a reader never meets a half-written one.

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "vu_file.h"
#include "vu_storage.h"

namespace {

constexpr char kOwner[] = "jdoe";
constexpr char kDocument[] = "sales.kdb";
constexpr auto kArea = STG::UserRepository;

/// args: a root. One document, told line by line: "write", "add TEXT", "read", "close", and
/// "replace" by a second handle beside the first.
int use_document(const std::vector<std::string>& args) {
  vu_storage::initRootStorage(args.at(0), true, false);
  vu_storage storage;
  vu_file file;
  while (const std::optional<std::string> line = hear()) {
    std::istringstream words(*line);
    std::string verb;
    std::string text;
    words >> verb >> text;
    if (verb == "write" || verb == "read") {
      say("opening");
      if (verb == "write") {
        storage.OpenWrite(file, kOwner, kDocument, kArea, true, 0);
      } else {
        storage.OpenRead(file, kOwner, kDocument, kArea, 0);
        storage.Read(file, text, 0);
      }
      say((file.is_open() ? "open " : "closed ") + text);
    } else if (verb == "replace") {
      say("opening");
      vu_file second;
      storage.OpenWrite(second, kOwner, kDocument, kArea, true, 0);
      say(second.is_open() ? "open" : "closed");
    } else if (verb == "add") {
      storage.Write(file, text);
      say("added");
    } else {
      storage.Close(file);
      say("closed");
    }
  }
  return 0;
}
REGISTER_ROLE(use_document, use_document)

void ask(child_process& child, const std::string& line, const std::string& answer) {
  child.tell(line);
  EXPECT_TRUE(child.hears(answer)) << line;
}

}  // namespace

TEST(DocumentsUnderProcesses, AreReadWholeOrNotYet) {
  const scratch_folder folder;
  child_process writer("use_document", {folder.path()});
  child_process reader("use_document", {folder.path()});
  ask(writer, "write", "opening");
  ASSERT_TRUE(writer.hears("open "));
  ask(writer, "add first-", "added");

  ask(reader, "read", "opening");
  EXPECT_TRUE(reader.stays_silent());
  ask(writer, "add second", "added");
  ask(writer, "close", "closed");
  EXPECT_TRUE(reader.hears("open first-second"));

  // And the other way round: it is not replaced under the eyes of its reader.
  ask(writer, "write", "opening");
  EXPECT_TRUE(writer.stays_silent());
  ask(reader, "close", "closed");
  EXPECT_TRUE(writer.hears("open "));
  ask(writer, "add new", "added");
  ask(writer, "close", "closed");
  ask(reader, "read", "opening");
  EXPECT_TRUE(reader.hears("open new"));
}

TEST(DocumentsUnderProcesses, AreLeftCutShortByAWriterThatDies) {
  const scratch_folder folder;
  child_process reader("use_document", {folder.path()});
  {
    child_process writer("use_document", {folder.path()});
    ask(writer, "write", "opening");
    ASSERT_TRUE(writer.hears("open "));
    ask(writer, "add only-a-part", "added");
    writer.kill();
    EXPECT_EQ(writer.wait(), child_process::kKilled);
  }
  ask(reader, "read", "opening");
  EXPECT_TRUE(reader.hears("open only-a-part")) << "it cannot be told from a complete one";
}

TEST(DocumentsUnderProcesses, KeepACallerWaitingForEverThatReplacesWhatItReads) {
  const scratch_folder folder;
  child_process caller("use_document", {folder.path()});
  ask(caller, "write", "opening");
  ASSERT_TRUE(caller.hears("open "));
  ask(caller, "close", "closed");
  ask(caller, "read", "opening");
  ASSERT_TRUE(caller.hears("open "));
  ask(caller, "replace", "opening");
  EXPECT_TRUE(caller.stays_silent(std::chrono::milliseconds(400)));
  caller.kill();
  EXPECT_EQ(caller.wait(), child_process::kKilled);

  child_process next("use_document", {folder.path()});
  ask(next, "replace", "opening");
  EXPECT_TRUE(next.hears("open")) << "what it waited for is free again";
}
