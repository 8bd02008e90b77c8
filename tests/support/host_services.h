#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "vu_host.h"
#include "vu_i18n.h"

/// @file
/// Fakes of the services that a host supplies.

/// A configuration whose binary folder a test sets.
class fake_configuration final : public vu_host::configuration {
 public:
  /// @param folder in UTF-8.
  explicit fake_configuration(const std::string& folder = "") { set_binary_folder(folder); }

  void set_binary_folder(const std::string& folder) {
    m_folder = ucs2string(vu_utf8string(folder));
  }
  /// How often the library asked for the folder.
  int questions() const { return m_questions; }

  ucs2string binary_folder() override {
    ++m_questions;
    return m_folder;
  }

 private:
  ucs2string m_folder;
  std::atomic<int> m_questions = 0;
};

/// A temporary-files helper whose folders a test sets. It records the calls in order: "initialise
/// MY_PROCESS MY_COMP", "server_folder", "framework_root_folder".
class fake_temporary_files final : public vu_host::temporary_files {
 public:
  /// @param server, framework in UTF-8.
  explicit fake_temporary_files(const std::string& server = "", const std::string& framework = "") {
    set_server_folder(server);
    set_framework_root_folder(framework);
  }

  void set_server_folder(const std::string& folder) {
    m_server = ucs2string(vu_utf8string(folder));
  }
  void set_framework_root_folder(const std::string& folder) {
    m_framework = ucs2string(vu_utf8string(folder));
  }
  std::vector<std::string> calls() const {
    const std::scoped_lock guard(m_mutex);
    return m_calls;
  }

  void initialise(const char* process, const char* component) override {
    note(std::string("initialise ") + process + " " + component);
  }
  ucs2string server_folder() override {
    note("server_folder");
    return m_server;
  }
  ucs2string framework_root_folder() override {
    note("framework_root_folder");
    return m_framework;
  }

 private:
  void note(const std::string& call) {
    const std::scoped_lock guard(m_mutex);
    m_calls.push_back(call);
  }

  ucs2string m_server;
  ucs2string m_framework;
  mutable std::mutex m_mutex;
  std::vector<std::string> m_calls;
};

/// A component factory with a log history that keeps its records.
class fake_components final : public vu_host::component_factory {
 public:
  struct record_t {
    std::string text;
    std::tuple<int, int, int> numbers;
    bool operator==(const record_t&) const = default;
  };

  fake_components() : m_history(*this) {}

  /// Whether the component's settings turn recording on (the default).
  void set_enabled(bool enabled) { m_enabled = enabled; }
  /// Whether create() finds the component (the default).
  void set_available(bool available) { m_available = available; }

  std::vector<record_t> records() const {
    const std::scoped_lock guard(m_mutex);
    return m_records;
  }
  /// The arguments of create(): class and interface, separated by a blank.
  std::vector<std::string> requests() const {
    const std::scoped_lock guard(m_mutex);
    return m_requests;
  }
  /// The arguments of the calls by which the library checks whether recording is on.
  std::vector<std::tuple<int, int, int>> questions() const {
    const std::scoped_lock guard(m_mutex);
    return m_questions;
  }
  int creations() const { return m_creations; }
  int releases() const { return m_releases; }

  vu_host::component* create(const char* class_id, const char* interface_id) noexcept override {
    const std::scoped_lock guard(m_mutex);
    m_requests.push_back(std::string(class_id) + " " + interface_id);
    if (!m_available) return nullptr;
    ++m_creations;
    return &m_history;
  }

 private:
  class history final : public vu_host::log_history {
   public:
    explicit history(fake_components& owner) : m_owner(owner) {}

    void release() noexcept override { ++m_owner.m_releases; }
    bool enabled(int first, int second, int third) noexcept override {
      const std::scoped_lock guard(m_owner.m_mutex);
      m_owner.m_questions.emplace_back(first, second, third);
      return m_owner.m_enabled;
    }
    void record(const char* text, int first, int second, int third) noexcept override {
      const std::scoped_lock guard(m_owner.m_mutex);
      m_owner.m_records.push_back({text, {first, second, third}});
    }

   private:
    fake_components& m_owner;
  };

  history m_history;
  mutable std::mutex m_mutex;
  std::vector<record_t> m_records;
  std::vector<std::string> m_requests;
  std::vector<std::tuple<int, int, int>> m_questions;
  std::atomic<bool> m_enabled = true;
  std::atomic<bool> m_available = true;
  std::atomic<int> m_creations = 0;
  std::atomic<int> m_releases = 0;
};
