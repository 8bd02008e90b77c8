#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "index/index_format.h"
#include "index/index_reader.h"

/// The files of a listing that an index certainly knows, so that they are not adopted. The others
/// have to be looked up in the index. There are no others if only the library writes to the folder.
///
/// The index knows a file by the first line that has its name, or its name without the extension,
/// as the physical name:
///
///     a.kdb_0000000001/00000007       makes 00000007.kdb known
///     notes.txt_0000000000/notes.txt  makes notes.txt known, unless the line below comes first
///     other_0000000001/notes.txt      does not make notes.txt known
///
/// Order of calls: construct it with the reading and the size of the listing that judged the
/// reading. Then first_doubtful(), from the start of that listing on. Errors: std::bad_alloc from
/// the constructor. Threads: any number may query it.
class KnownFiles {
 public:
  KnownFiles(const IndexReading& reading, std::size_t files) : m_claims(files, Claim::kNone) {
    for (const IndexLine& line : reading.lines) {
      if (line.file == FolderFiles::kNone || line.state != LineState::kValid) continue;
      if (line.has_extension) {
        m_claims[line.file] = Claim::kKnown;
      } else {
        note_dotted_stems({reading.lines.data(), &line});
        claim_by_own_name(line);
      }
    }
  }

  /// The first file of the listing, from @p file on, that is not certainly known; the size of the
  /// listing if all are known.
  std::size_t first_doubtful(std::size_t file) const {
    const auto is_doubtful = [](Claim claim) { return claim != Claim::kKnown; };
    const auto from = m_claims.begin() + static_cast<std::ptrdiff_t>(file);
    return static_cast<std::size_t>(std::find_if(from, m_claims.end(), is_doubtful) -
                                    m_claims.begin());
  }

 private:
  enum class Claim : std::uint8_t {
    kNone,
    kByAnother,  ///< the first line with its name may be that of another entry
    kKnown,
  };

  /// Searches @p before, the lines before the current one, for a dotted stem. Called for a line
  /// whose file's name is its physical name: only such a name can also be a dotted stem.
  void note_dotted_stems(std::span<const IndexLine> before) {
    for (const IndexLine& line : before.subspan(m_noted)) {
      m_has_dotted_stem =
          m_has_dotted_stem || (line.has_extension && line.state == LineState::kValid &&
                                line.stored.find('.') != std::string_view::npos);
    }
    m_noted = before.size();
  }

  void claim_by_own_name(const IndexLine& line) {
    Claim& claim = m_claims[line.file];
    if (claim != Claim::kNone) return;
    const bool is_adopted = index_format::timestamp_of(line.key) == 0 &&
                            index_format::logical_of(line.key) == line.stored;
    claim = is_adopted && !m_has_dotted_stem ? Claim::kKnown : Claim::kByAnother;
  }

  std::vector<Claim> m_claims;
  /// A valid line has a physical name with a dot, and its file has an extension after that. Such a
  /// physical name may be the name of another file as well: "notes.txt" of the file notes.txt.kdb.
  bool m_has_dotted_stem = false;
  std::size_t m_noted = 0;  ///< the number of lines that were searched
};
