#include <string>
#include <string_view>
#include <utility>

#include "file/handle_core.h"
#include "file/path_text.h"
#include "platform/host/trace.h"
#include "stg_index.h"
#include "storage/guard.h"
#include "storage/key_text.h"
#include "storage/roots.h"
#include "vu_storage.h"

using storage::guarded;
using storage::kSource;
using vu_host::trace_level;

// ---- lines and text ---------------------------------------------------------------------------

bool vu_storage::LoadKeyLine(const std::string& line, STG::NameValue& out, bool lastSeparator) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  const auto separator = lastSeparator ? key_text::Separator::kLast : key_text::Separator::kFirst;
  const auto pair = key_text::split(line, separator);
  if (!pair) return false;
  out.name = pair->name;
  out.value = pair->value;
  return true;
}

std::string vu_storage::getStringFromNameValueSeq(const STG::NameValueSeq& seq) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  const auto failed = [&](const auto&... text) {
    VU_ERROR("vu_storage::getStringFromNameValueSeq ", text...);
  };
  // The text does not depend on the storage, so a failed initialisation is only traced.
  guarded([&] { checkInit(); }, failed, failed);
  return guarded(
      std::string(), [&] { return key_text::join(seq); }, failed, failed);
}

std::string vu_storage::getBuffer(const vu_utf8string& s) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  // Required: the text up to the first NUL, like every name that goes to the system.
  return s.c_str();
}

// ---- key files --------------------------------------------------------------------------------

bool vu_storage::Read(vu_file& file, STG::NameValueSeq& seq, bool lastSeparator) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  const auto silent = [](const auto&...) {};
  return guarded(
      false,
      [&] {
        checkInit();
        const FileText text = read_to_end(file);
        key_text::Lines lines(text.view());
        std::string_view next;
        std::string line;
        while (lines.next(next)) {
          line = next;
          STG::NameValue pair;
          if (LoadKeyLine(line, pair, lastSeparator)) seq.push_back(std::move(pair));
        }
        return true;
      },
      silent, silent);
}

long vu_storage::readKeysFile(const std::string& folder, const std::string& fileName,
                              STG::NameValueSeq& seq, bool lastSeparator) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  return guarded(
      1L,
      [&] {
        checkInit();
        const std::string path = path_text::join(folder, fileName);
        if (!vu_file::exists(path)) {
          VU_WARNING("vu_storage::readKeysFile : ", path, " not found");
          return 1L;
        }
        vu_file file;
        file.open(folder, fileName, vu_file_base::o_read);
        const bool read = Read(file, seq, lastSeparator);
        file.close();
        return read ? 0L : 1L;
      },
      [&](const std::string& text) {
        VU_ERROR("vu_storage::readKeysFile ", text);  // sic: no colon
      },
      [&] {
        VU_ERROR("vu_storage::readKeysFile failed file", folder, "\\", fileName);  // sic: no blank
      });
}

bool vu_storage::writeKeysFile(const std::string& folder, const std::string& fileName,
                               const std::string& text, bool replace) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  return guarded(
      false,
      [&] {
        checkInit();
        // Required: an empty text leaves the old lines alone, even if @p replace is set.
        if (text.empty()) return true;
        vu_file file;
        file.open(folder, fileName, replace ? vu_file_base::o_truncate : vu_file_base::o_append);
        file.write(text);
        file.close();
        return true;
      },
      [&](const std::string& error) { VU_ERROR("vu_storage::writeKeysFile : ", error); },
      [&] {
        VU_ERROR("vu_storage::writeKeysFile failed file", folder, "\\", fileName);  // sic: no blank
      });
}

void vu_storage::DeleteKeyLineFromFile(const std::string& folder, const std::string& logicalName,
                                       const std::string& entry) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  guarded(
      [&] {
        std::string physical;
        if (!STGIndex::exists(folder, logicalName, 0, physical)) {
          VU_TRACE_XS("DeleteKeyLineFromFile : entry=", entry);
          return;
        }
        vu_file file;
        file.open(folder, physical, vu_file_base::o_read);
        std::string text(read_to_end(file).view());
        // Required: the entry is found anywhere, even inside the name or value of another line.
        const bool found = key_text::cut_line(text, entry);
        file.close();
        if (!found) return;
        // Lines that another process writes between close and open are lost.
        file.open(folder, physical, vu_file_base::o_truncate);
        file.write(text);
        file.close();
      },
      [&](const std::string& text) { VU_ERROR("vu_storage::DeleteKeyLineFromFile ", text); },
      [&] { VU_ERROR("vu_storage::DeleteKeyLineFromFile "); });  // sic: a blank ends it
}

void StorageGate::remove_from_other_categories(const std::string& folder,
                                               const std::string& entry) {
  STGIndex::NameMap categories;
  STGIndex::getCategories(folder, categories);
  for (const auto& [category, physical] : categories) {
    if (category != entry) vu_storage::DeleteKeyLineFromFile(folder, category, entry);
  }
}

void vu_storage::RemoveFromCategFiles(const std::string& folder, const std::string& entry) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  STGIndex::NameMap categories;
  STGIndex::getCategories(folder, categories);
  for (const auto& [category, physical] : categories)
    DeleteKeyLineFromFile(folder, category, entry);
}

// ---- key files of an owner --------------------------------------------------------------------

long vu_storage::saveKey(const std::string& userOrDomain, const std::string& name,
                         STG::RepositoryType type, const STG::NameValueSeq& seq) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  return guarded(
      1L,
      [&] {
        // Required: the results of folder and file are ignored; both have traced.
        std::string dir;
        createUserOrDomainNameDirectory(userOrDomain, name, type, dir, true);
        const std::string physical = STGIndex::create(dir, name, 0);
        writeKeysFile(dir, physical, getStringFromNameValueSeq(seq), true);
        return 0L;
      },
      [&](const std::string& text) { VU_ERROR("vu_storage::saveKey : ", text); },
      [&] { VU_ERROR("vu_storage::saveKey"); });
}

long vu_storage::loadKey(const std::string& userOrDomain, const std::string& name,
                         STG::RepositoryType type, STG::NameValueSeq& seq) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  return guarded(
      1L,
      [&] {
        std::string dir;
        if (!createUserOrDomainNameDirectory(userOrDomain, name, type, dir, false)) return 1L;
        std::string physical;
        if (!STGIndex::exists(dir, name, 0, physical)) return 1L;
        // Required: a file that is missing or cannot be read is not a failure.
        readKeysFile(dir, physical, seq, false);
        return 0L;
      },
      [&](const std::string& text) { VU_ERROR("vu_storage::loadKey : ", text); },
      [&] { VU_ERROR("vu_storage::loadKey"); });
}
