#pragma once

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/os/os.h"

/// @file
/// System calls that fail, for tests on Linux. A child process bars calls with a kernel filter and
/// then runs the code under test. Nothing is replaced: the kernel returns the error.

/// One call that fails.
struct BarredCall {
  long number;
  int error;
  /// If set, the call fails only with this second argument (the command of fcntl()).
  int second_argument = -1;
};

inline bool bar_calls(const std::vector<BarredCall>& calls) {
  std::vector<::sock_filter> program;
  const auto load = [&](std::size_t offset) {
    program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset)));
  };
  const auto skip_unless = [&](std::uint32_t value, std::uint8_t statements) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, statements));
  };
  for (const BarredCall& call : calls) {
    const bool by_argument = call.second_argument != -1;
    load(offsetof(::seccomp_data, nr));
    skip_unless(static_cast<std::uint32_t>(call.number), by_argument ? 3 : 1);
    if (by_argument) {
      load(offsetof(::seccomp_data, args) + sizeof(std::uint64_t));
      skip_unless(static_cast<std::uint32_t>(call.second_argument), 1);
    }
    const auto error = static_cast<std::uint32_t>(call.error) & SECCOMP_RET_DATA;
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  ::sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

/// The text of a child process that could not bar the calls.
inline constexpr const char* kCannotBar = "this kernel does not let calls be barred";

/// Runs @p body in a child process that cannot make @p calls.
/// @return the text that the body returns, at most some hundred bytes; empty on success.
inline std::string in_child_without(const std::vector<BarredCall>& calls,
                                    const std::function<std::string()>& body) {
  constexpr std::size_t kSize = 4096;
  // Shared memory, because the child may be unable to write.
  void* const shared =
      ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return "mmap() failed";
  char* const words = static_cast<char*>(shared);
  const ::pid_t child = ::fork();
  if (child == 0) {
    std::string result = kCannotBar;
    try {
      if (bar_calls(calls)) result = body();
    } catch (const std::exception& exception) {
      result = exception.what();
    }
    result.copy(words, kSize - 1);
    ::_exit(0);
  }
  int status = -1;
  while (child > 0 && ::waitpid(child, &status, 0) == -1 && errno == EINTR) {
  }
  std::string result = words;
  ::munmap(shared, kSize);
  return status == 0 ? result : "the child ended badly: " + result;
}

/// Returns an empty text if @p status is a success.
inline std::string complaint(const char* what, os::Status status) {
  if (status.ok()) return "";
  return std::string(what) + " failed with code " + std::to_string(status.code());
}

/// Returns an empty text if @p status is this failure.
inline std::string complaint(const char* what, os::Status status, os::Failure failure, int code) {
  if (status.failure() == failure && status.code() == code) return "";
  return std::string(what) + " gave code " + std::to_string(status.code());
}

/// Acts once, before the next lock request of one type (F_RDLCK, F_WRLCK, F_UNLCK) that does not
/// wait. os_linux_names_test.cpp replaces fcntl() for this. Only for tests with one thread.
class BeforeLockRequest {
 public:
  BeforeLockRequest(int type, std::function<void()> act) : m_type(type), m_act(std::move(act)) {
    s_next = this;
  }
  ~BeforeLockRequest() { s_next = nullptr; }
  BeforeLockRequest(const BeforeLockRequest&) = delete;
  BeforeLockRequest& operator=(const BeforeLockRequest&) = delete;

  static void arrives(int type) {
    if (s_next != nullptr && s_next->m_type == type) std::exchange(s_next, nullptr)->m_act();
  }
  bool has_acted() const { return s_next != this; }

 private:
  static inline BeforeLockRequest* s_next = nullptr;
  const int m_type;
  const std::function<void()> m_act;
};

/// Expects an empty text of the child process.
#define EXPECT_SILENT_CHILD(words)                             \
  do {                                                         \
    const std::string child_words = (words);                   \
    if (child_words == kCannotBar) GTEST_SKIP() << kCannotBar; \
    EXPECT_EQ(child_words, "");                                \
  } while (false)
