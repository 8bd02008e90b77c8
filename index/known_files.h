#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "index/index_format.h"
#include "index/index_reader.h"

/// Which files of a listing are known to an index beyond doubt, so that they are not adopted. The
/// others are looked up in the maps before that; in a folder that only the library writes to, none
/// is left.
///
/// A file is known to the maps by the first line with its stored name, and by that name alone:
///
///     a.kdb_0000000001/00000007      makes 00000007.kdb known
///     notes.txt_0000000000/notes.txt makes notes.txt known
///     other_0000000001/notes.txt     does not; behind it, the line before does not either
///
/// Order of calls: construct it with the reading and the size of the listing that judged it, then
/// first_doubtful(), from the beginning of that listing on. Nothing fails but for want of memory.
/// Several threads may ask.
class KnownFiles {
 public:
  KnownFiles(const IndexReading& reading, std::size_t files) : m_claims(files, Claim::kNone) {
    for (const IndexLine& line : reading.lines) {
      if (line.entry == FolderFiles::kNone || line.state != LineState::kValid) continue;
      if (line.has_extension) {
        m_claims[line.entry] = Claim::kKnown;
      } else {
        note_dotted_stems({reading.lines.data(), &line});
        claim_by_own_name(line);
      }
    }
  }

  /// The first entry of the listing from @p entry on that is not known, for which the maps have to
  /// be asked; the listing's size when all are.
  std::size_t first_doubtful(std::size_t entry) const {
    const auto is_doubtful = [](Claim claim) { return claim != Claim::kKnown; };
    const auto from = m_claims.begin() + static_cast<std::ptrdiff_t>(entry);
    return static_cast<std::size_t>(std::find_if(from, m_claims.end(), is_doubtful) -
                                    m_claims.begin());
  }

 private:
  enum class Claim : std::uint8_t {
    kNone,
    kByAnother,  ///< it bears the stored name of a line for which that is not the logical name
    kKnown,
  };

  /// A file that no extension leads to is the only one that a dot in another line's stored name
  /// can be about: so none is looked for before there is such a file.
  void note_dotted_stems(std::span<const IndexLine> before) {
    for (const IndexLine& line : before.subspan(m_noted)) {
      m_has_dotted_stem =
          m_has_dotted_stem || (line.has_extension && line.state == LineState::kValid &&
                                line.stored.find('.') != std::string_view::npos);
    }
    m_noted = before.size();
  }

  void claim_by_own_name(const IndexLine& line) {
    Claim& claim = m_claims[line.entry];
    if (claim != Claim::kNone) return;
    const bool is_adopted = index_format::timestamp_of(line.key) == 0 &&
                            index_format::logical_of(line.key) == line.stored;
    claim = is_adopted && !m_has_dotted_stem ? Claim::kKnown : Claim::kByAnother;
  }

  std::vector<Claim> m_claims;
  /// A stored name with a dot was found with the extension behind it: such a name may be a file's
  /// as well.
  bool m_has_dotted_stem = false;
  std::size_t m_noted = 0;  ///< so many lines were asked for that
};
