#include <cstddef>
#include <cstdint>
#include <string>

#include "file/path_text.h"
#include "index/numbers.h"
#include "platform/host/trace.h"
#include "stg_index.h"
#include "storage/common.h"
#include "storage/guard.h"
#include "storage/layout.h"
#include "storage/roots.h"
#include "vu_storage.h"

using storage::guarded;
using storage::kSource;
using vu_host::trace_level;

namespace {

/// The low 32 bits of a time as a signed number; times are compared in this form.
std::int32_t time_of(const std::string& path) {
  return static_cast<std::int32_t>(vu_file::modify_time(path));
}

/// The folders from which a rendition is read: the folder of its kind, and that of its sub-parts.
struct ReadFolders {
  std::string of_type;
  std::string of_parts;
};

ReadFolders read_folders(const std::string& root, const std::string& selector) {
  const layout::RenditionFolders below = layout::folders_to_read(selector);
  const std::string of_type = below.of_type.empty() ? root : path_text::join(root, below.of_type);
  return {of_type, path_text::join(of_type, below.of_parts)};
}

}  // namespace

// ---- writing ----------------------------------------------------------------------------------

void vu_storage::OpenWriteSubPart(vu_file& file, const std::string& userOrDomain,
                                  const std::string& entry, const std::string& strType,
                                  const std::string& strPartId, long docTime) {
  VU_TRACE_SCOPE(kSource, trace_level::m, "vu_storage::OpenWriteSubPart: ", userOrDomain, " : ",
                 entry, " : ", strPartId);
  std::string dir;
  OpenOrClosed opened(file);
  guarded(
      [&] {
        checkInit();
        if (entry.empty()) return;
        if (!createUserOrDomainNameDirectory(userOrDomain, entry, STG::CorporateRepository, dir,
                                             true))
          return;
        std::string physical;
        if (!STGIndex::exists(dir, entry, docTime, physical)) {
          VU_ERROR("OpenWriteSubPart : entry not found ! entry=", entry, " TS=", clamp32(docTime));
          return;
        }

        dir = layout::root_of_parts(path_text::join(dir, physical), s_sTdcTimeStamp);
        make_folder_if_missing(dir);
        const std::size_t at = strType.find('@');
        if (at == std::string::npos) {
          dir += "\\" + strType;
        } else {
          dir += "\\" + strType.substr(0, at);
          make_folder_if_missing(dir);
          dir += "\\" + strType.substr(at + 1);
        }
        make_folder_if_missing(dir);
        opened.open(dir, strPartId, vu_file_base::o_truncate);
      },
      [&](const std::string& text) {
        VU_ERROR("vu_storage::OpenWriteSubPart :", text);  // sic: no blank after the colon
      },
      [&] {
        VU_ERROR("vu_storage::OpenWriteSubPart : Can't open file for write : sDir->", dir,
                 "   strPartId->", strPartId);
      });
}

void vu_storage::OpenWriteSubPart(vu_file& file, const vu_utf8string& userOrDomain,
                                  const vu_utf8string& entry, const std::string& strType,
                                  const std::string& strPartId, long docTime) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  OpenWriteSubPart(file, getBuffer(userOrDomain), getBuffer(entry), strType, strPartId, docTime);
}

// ---- the decision -----------------------------------------------------------------------------

int vu_storage::getBestUpdateWay(const std::string& strRepo, const std::string& strEntry,
                                 const std::string& strType, const std::string& strPartID,
                                 std::string& partDir, std::string& preloadDir, long docTime) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  // Required: after an exception the sub-part is reported as up to date.
  return guarded(
      int{kUpToDate},
      [&]() -> int {
        std::string folder;
        std::string physical;
        if (!IsFileExist(strRepo, strEntry, STG::CorporateRepository, docTime, &folder,
                         &physical)) {
          VU_TRACE_XL("file ", strEntry, " does not exist");
          return kRegenerate;
        }
        const std::string document = path_text::join(folder, physical);
        const std::int32_t document_time = time_of(document);
        if (document_time == 0) return kForceRetrieve;

        const std::string root = layout::root_of_parts(document, s_sTdcTimeStamp);
        if (!vu_file::exists(root)) return kRegenerate;
        const ReadFolders folders = read_folders(root, strType);
        if (folders.of_type != root) make_folder_if_missing(folders.of_type);
        make_folder_if_missing(folders.of_parts);
        partDir = folders.of_parts;
        if (vu_file::getExtension(strEntry) == "kdf") return kUpToDate;

        preloadDir = folders.of_type + "\\preload";
        const std::int32_t preload_time = time_of(path_text::join(preloadDir, strPartID));
        const std::int32_t part_time = time_of(path_text::join(partDir, strPartID));
        if (part_time < preload_time) return kFromPreload;
        return part_time >= document_time ? kUpToDate : kRegenerate;
      },
      [&](const std::string& text) { VU_ERROR("vu_storage::getBestUpdateWay : ", text); },
      [&] { VU_ERROR("vu_storage::getBestUpdateWay : unknown error"); });
}

// ---- reading ----------------------------------------------------------------------------------

void vu_storage::OpenReadSubPart(vu_file& file, const std::string& strUser,
                                 const std::string& strRepo, const std::string& strEntry,
                                 const std::string& strType, const std::string& strPartID,
                                 long docTime) {
  VU_TRACE_SCOPE(kSource, trace_level::m, "vu_storage::OpenReadSubPart ");  // sic: a blank ends it
  OpenOrClosed opened(file);
  guarded(
      [&] {
        checkInit();
        VU_TRACE_XS("strUser:", strUser, "\t strRepo:", strRepo, "\t strEntry:", strEntry,
                    "\t strType:", strType, "\t strPartID:", strPartID,
                    "\t docTime:", clamp32(docTime));
        if (strEntry.empty()) return;

        std::string part_dir;
        std::string preload_dir;
        switch (getBestUpdateWay(strRepo, strEntry, strType, strPartID, part_dir, preload_dir,
                                 docTime)) {
          case kForceRetrieve:
            VU_ERROR("case -1 : vu_storage::OpenReadSubPart : unknown error, force retrieve doc");
            break;
          case kUpToDate:
            VU_SUCCESS("case 0 : Doc is up to date");
            opened.open(part_dir, strPartID, vu_file_base::o_read);
            break;
          case kFromPreload:
            VU_SUCCESS("case 1: Doc must be updated from preload");  // sic: no blank
            if (vu_file::copyFile(path_text::join(preload_dir, strPartID),
                                  path_text::join(part_dir, strPartID), true))
              opened.open(part_dir, strPartID, vu_file_base::o_read);
            break;
          case kRegenerate:
            VU_TRACE_XL("Document must to be regenerated");  // sic
            break;
          default: break;
        }
      },
      [&](const std::string& text) {
        VU_WARNING("vu_storage::OpenReadSubPart: ", text);  // sic: no blank before the colon
      },
      [&] { VU_ERROR("vu_storage::OpenReadSubPart : unknown error, force retrieve doc"); });
}

void vu_storage::OpenReadSubPart(vu_file& file, const vu_utf8string& strUser,
                                 const vu_utf8string& strRepo, const vu_utf8string& strEntry,
                                 const std::string& strType, const std::string& strPartID,
                                 long docTime) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  OpenReadSubPart(file, getBuffer(strUser), getBuffer(strRepo), getBuffer(strEntry), strType,
                  strPartID, docTime);
}

void vu_storage::OpenReadSubPartEx(vu_file& file, const std::string& strUser,
                                   const std::string& strRepo, const std::string& strEntry,
                                   const std::string& strType, const std::string& strPartID,
                                   long docTime, unsigned long& size) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  size = 0;
  // If the size cannot be determined, the file is closed: with the size 0 it would look empty.
  const auto failed = [&](const auto&...) {
    file.close();
    VU_ERROR("vu_storage::OpenReadSubPart : unknown error, force retrieve doc");
  };
  guarded(
      [&] {
        checkInit();
        OpenReadSubPart(file, strUser, strRepo, strEntry, strType, strPartID, docTime);
        // Unsigned, so that the size of a sub-part of 2 to 4 GB is right.
        if (file.is_open()) size = static_cast<std::uint32_t>(vu_file::size(file.getFilePath()));
      },
      failed, failed);
}

void vu_storage::OpenReadSubPartEx(vu_file& file, const vu_utf8string& strUser,
                                   const vu_utf8string& strRepo, const vu_utf8string& strEntry,
                                   const std::string& strType, const std::string& strPartID,
                                   long docTime, unsigned long& size) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  OpenReadSubPartEx(file, getBuffer(strUser), getBuffer(strRepo), getBuffer(strEntry), strType,
                    strPartID, docTime, size);
}
