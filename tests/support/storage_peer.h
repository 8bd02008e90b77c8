#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

#include "stg_index.h"
#include "storage/roots.h"
#include "vu_storage.h"

/// Lets unit tests reset the storage to its state before the first call, and call its private
/// operations. Each forwarder has the name of the function that it calls.
struct vu_storage_test_peer {
  /// The state of a library that was just loaded: not initialised, every path empty.
  static void reset() {
    set_init_done(0);
    StorageGate::publish({});
    vu_storage::s_sTdcTimeStamp.clear();
    STGIndex::setSynchronizeMode(true);
  }

  static std::int32_t init_done() {
    return std::atomic_ref<std::int32_t>(vu_storage::s_initDone).load(std::memory_order_acquire);
  }
  static void set_init_done(std::int32_t marker) {
    std::atomic_ref<std::int32_t>(vu_storage::s_initDone).store(marker, std::memory_order_release);
  }
  static bool use_domain() { return vu_storage::roots().s_bUseDomain; }
  static void set_use_domain(bool use_domain) {
    vu_storage::Roots changed = vu_storage::roots();
    changed.s_bUseDomain = use_domain;
    StorageGate::publish(changed);
  }
  static const std::string& storage_path() { return vu_storage::roots().s_storagePath; }
  static const std::string& corp_path() { return vu_storage::roots().s_sCorpPath; }
  static const std::string& semlet_path() { return vu_storage::roots().s_sSemletPath; }
  static const std::string& user_path() { return vu_storage::roots().s_sUserPath; }
  static const std::string& list_path() { return vu_storage::roots().s_sListPath; }
  static const std::string& mail_path() { return vu_storage::roots().s_sMailPath; }
  static const std::string& config_dir_path() { return vu_storage::roots().s_sConfigDirPath; }
  static void set_config_dir_path(const std::string& path) {
    vu_storage::Roots changed = vu_storage::roots();
    changed.s_sConfigDirPath = path;
    StorageGate::publish(changed);
  }
  static const std::string& tdc_time_stamp() { return vu_storage::s_sTdcTimeStamp; }

  static void checkInit() { vu_storage::checkInit(); }
  static void initPath(const std::string& storagePath) {
    vu_storage::Roots begun = vu_storage::roots();
    begun.s_storagePath = storagePath;
    vu_storage::initPath(begun);
  }
  static long HashCode_asJava(const std::string& s, int modulus) {
    return vu_storage::HashCode_asJava(s, modulus);
  }
  static std::string getLogicalName(const std::string& name, long timestamp) {
    return vu_storage::getLogicalName(name, timestamp);
  }
  static bool getLastVersion(const std::string& folder, const std::string& entry, long& timestamp) {
    return vu_storage::getLastVersion(folder, entry, timestamp);
  }
  static bool LoadKeyLine(const std::string& line, STG::NameValue& out, bool lastSeparator) {
    return vu_storage::LoadKeyLine(line, out, lastSeparator);
  }
  static void DeleteKeyLineFromFile(const std::string& folder, const std::string& logicalName,
                                    const std::string& entry) {
    vu_storage::DeleteKeyLineFromFile(folder, logicalName, entry);
  }
  static long saveKey(const std::string& userOrDomain, const std::string& name,
                      STG::RepositoryType type, const STG::NameValueSeq& seq) {
    return vu_storage::saveKey(userOrDomain, name, type, seq);
  }
  static long loadKey(const std::string& userOrDomain, const std::string& name,
                      STG::RepositoryType type, STG::NameValueSeq& seq) {
    return vu_storage::loadKey(userOrDomain, name, type, seq);
  }
  static void RemoveFromCategFiles(const std::string& folder, const std::string& entry) {
    vu_storage::RemoveFromCategFiles(folder, entry);
  }
  static std::string getBuffer(const vu_utf8string& s) { return vu_storage::getBuffer(s); }
  static int getBestUpdateWay(vu_storage& storage, const std::string& strRepo,
                              const std::string& strEntry, const std::string& strType,
                              const std::string& strPartID, std::string& partDir,
                              std::string& preloadDir, long docTime) {
    return storage.getBestUpdateWay(strRepo, strEntry, strType, strPartID, partDir, preloadDir,
                                    docTime);
  }
  static void AddExistVUFilesToMap(const std::string& folder,
                                   std::multimap<std::string, std::string>& map) {
    vu_storage::AddExistVUFilesToMap(folder, map);
  }
};

/// A storage for one test: reset, initialised below @p root, and reset at the end.
class initialised_storage {
 public:
  explicit initialised_storage(const std::string& root, bool use_domain = true,
                               bool synchronize = false) {
    vu_storage_test_peer::reset();
    vu_storage::initRootStorage(root, use_domain, synchronize);
  }
  ~initialised_storage() { vu_storage_test_peer::reset(); }
  initialised_storage(const initialised_storage&) = delete;
  initialised_storage& operator=(const initialised_storage&) = delete;
};
