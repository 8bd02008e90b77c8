// The manifest lists the content of a storage. Another build of this program compares a storage
// with it.
//
// Each item is a line; tabs separate the fields, and no field contains a tab:
//   storage_demo manifest 1
//   version  owner  type  timestamp  not older than  size  hash  entry
//   part     owner  timestamp  size  hash  rendition  id  entry
//   profile  owner  hash  name
//   index    folder below the storage  size  hash           (of the file "index.dat")
//   entry    folder below the storage  physical  logical    (names, as the library lists them)
#include <algorithm>
#include <charconv>
#include <map>
#include <set>
#include <utility>

#include "demo.h"

namespace demo {

namespace {

constexpr const char* kHeader = "storage_demo manifest 1";

using Fields = std::vector<std::string>;

std::string line_of(const Fields& fields) {
  std::string line;
  for (const std::string& field : fields) line += (line.empty() ? "" : "\t") + field;
  return line + "\n";
}

/// @return the folders with an index. Key: path below the storage with slashes; value: path for the
/// library.
std::map<std::string, std::string> index_folders() {
  std::map<std::string, std::string> folders;
  const std::string& storage = vu_storage::getStoragePath();
  const std::filesystem::path root = native(storage);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (entry.path().filename() != "index.dat") continue;
    std::string folder = utf8(entry.path().parent_path().lexically_relative(root));
    std::string below = folder;
    std::replace(below.begin(), below.end(), '\\', '/');
    std::replace(folder.begin(), folder.end(), '/', '\\');
    folders[below] = text_of(storage, "\\", folder);
  }
  return folders;
}

std::string index_lines() {
  std::string text;
  for (const auto& [below, folder] : index_folders()) {
    const std::string bytes = read_whole(native(folder + "\\index.dat"));
    text += line_of({"index", below, std::to_string(bytes.size()), std::to_string(fnv1a(bytes))});
    std::vector<std::string> physical;
    const std::vector<std::string> logical =
        vu_storage::getAllFileListFromIndexFile(folder, physical);
    for (std::size_t i = 0; i < logical.size(); ++i)
      text += line_of({"entry", below, physical[i], logical[i]});
  }
  return text;
}

}  // namespace

void write_manifest(Demo& demo) {
  std::string text{kHeader};
  text += '\n';
  for (const Version& v : demo.versions)
    text += line_of({"version", v.owner, std::to_string(static_cast<int>(v.type)),
                     std::to_string(v.stamp), std::to_string(v.not_older_than),
                     std::to_string(v.size), std::to_string(v.hash), v.entry});
  for (const Part& p : demo.parts)
    text += line_of({"part", p.owner, std::to_string(p.stamp), std::to_string(p.size),
                     std::to_string(p.hash), p.rendition, p.id, p.entry});
  for (const Profile& p : demo.profiles)
    text += line_of({"profile", p.owner, std::to_string(p.hash), p.name});
  text += index_lines();
  write_whole(native(demo.below_root("manifest.tsv")), text);
}

namespace {

class ManifestReader {
 public:
  explicit ManifestReader(Demo& demo) : m_demo(demo) {}

  void read(const std::string& text);

 private:
  void line(const Fields& fields);
  template <class Number>
  Number number(const std::string& field) const;
  [[noreturn]] void bad(const std::string& what) const {
    throw Refusal("the manifest " + m_demo.options.verify_only + " is invalid (" + what +
                  "): write a new one by a run without --verify-only");
  }

  Demo& m_demo;
};

template <class Number>
Number ManifestReader::number(const std::string& field) const {
  Number value{};
  const char* const end = field.data() + field.size();
  const auto result = std::from_chars(field.data(), end, value);
  if (result.ec != std::errc() || result.ptr != end) bad("'" + field + "' is not a number");
  return value;
}

void ManifestReader::line(const Fields& f) {
  if (f[0] == "version" && f.size() == 8) {
    m_demo.versions.push_back({f[1],
                               static_cast<STG::RepositoryType>(number<int>(f[2])),
                               f[7],
                               number<long>(f[3]),
                               {},
                               number<std::uint64_t>(f[5]),
                               number<std::uint64_t>(f[6]),
                               number<long>(f[4])});
  } else if (f[0] == "part" && f.size() == 8) {
    m_demo.parts.push_back({f[1], f[7], f[5], f[6], number<long>(f[2]), number<std::uint64_t>(f[3]),
                            number<std::uint64_t>(f[4])});
  } else if (f[0] == "profile" && f.size() == 4) {
    m_demo.profiles.push_back({f[1], f[3], number<std::uint64_t>(f[2])});
  } else if (f[0] == "index" && f.size() == 4) {
    IndexRecord& index = m_demo.indexes[f[1]];
    index.size = number<std::uint64_t>(f[2]);
    index.hash = number<std::uint64_t>(f[3]);
  } else if (f[0] == "entry" && f.size() == 4) {
    m_demo.indexes[f[1]].entries.insert({f[2], f[3]});
  } else {
    bad("unknown line '" + f[0] + "' with " + std::to_string(f.size()) + " fields");
  }
}

void ManifestReader::read(const std::string& text) {
  std::istringstream lines(text);
  std::string one;
  if (!std::getline(lines, one) || one != kHeader) bad("wrong first line");
  while (std::getline(lines, one)) {
    Fields fields(1);
    for (const char c : one) {
      if (c == '\t') {
        fields.emplace_back();
      } else {
        fields.back() += c;
      }
    }
    line(fields);
  }
  if (m_demo.versions.empty() || m_demo.indexes.empty()) bad("it lists no document");
}

}  // namespace

void read_manifest(Demo& demo) {
  std::string text;
  try {
    text = read_whole(native(demo.options.verify_only));
  } catch (const std::exception&) {
    throw Refusal("there is no manifest " + demo.options.verify_only +
                  ": name the manifest.tsv of an earlier run");
  }
  ManifestReader(demo).read(text);
}

namespace {

class Verifier {
 public:
  explicit Verifier(Demo& demo) : m_demo(demo) {}

  void versions();
  void parts();
  void profiles();
  void indexes();

 private:
  void index(const std::string& below, const std::string& folder, const IndexRecord& expected);
  /// Whether a narrow string of this process can represent the name. Counts the others.
  bool can_say(const std::string& name) {
    if (m_demo.beyond_ascii || is_ascii(name)) return true;
    ++m_left_out;
    return false;
  }

  Demo& m_demo;
  std::size_t m_left_out = 0;
};

void Verifier::versions() {
  m_demo.report.begin("Every version of every document");
  vu_storage storage;
  std::string bytes;
  std::uint64_t total = 0;
  std::map<std::string, Version> latest;
  for (const Version& version : m_demo.versions) {
    if (!can_say(version.owner + version.entry)) continue;
    m_demo.report.check(read_version(storage, version, bytes) && bytes.size() == version.size &&
                            fnv1a(bytes) == version.hash,
                        name_of(version) + " has the stored bytes");
    total += bytes.size();
    Version& known =
        latest[text_of(area_of(version.type), '\t', version.owner, '\t', version.entry)];
    if (known.entry.empty() || version.stamp > known.stamp) known = version;
  }
  for (const auto& [key, version] : latest)
    m_demo.report.check(vu_storage::getLattestTimestamp(version.owner, version.entry,
                                                        version.type) == version.stamp,
                        name_of(version) + " is the latest");
  m_demo.report.say(text_of(m_demo.versions.size() - m_left_out, " versions of ", latest.size(),
                            " documents, ", size_text(total), "; ", m_left_out,
                            " omitted because this process's code page lacks their letters"));
}

void Verifier::parts() {
  m_demo.report.begin("Sub-parts of documents");
  vu_storage storage;
  for (const Part& part : m_demo.parts) {
    vu_file file;
    std::string bytes;
    storage.OpenReadSubPart(file, "reader", part.owner, part.entry, part.rendition, part.id,
                            part.stamp);
    if (m_demo.report.check(file.is_open(), part.rendition + " " + part.id + " is up to date"))
      storage.Read(file, bytes, 0);
    storage.Close(file);
    m_demo.report.check(bytes.size() == part.size && fnv1a(bytes) == part.hash,
                        part.rendition + " " + part.id + " has the stored bytes");
  }
  m_demo.report.say(text_of(m_demo.parts.size(), " sub-parts"));
}

void Verifier::profiles() {
  m_demo.report.begin("Profiles and key files");
  for (const Profile& profile : m_demo.profiles) {
    STG::NameValueSeq lines;
    m_demo.report.check(
        vu_storage::loadUserOrMasterProfile(profile.owner, profile.name, lines) == 0 &&
            fnv1a(vu_storage::getStringFromNameValueSeq(lines)) == profile.hash,
        profile.name + " of " + profile.owner + " has the saved lines");
  }
  m_demo.report.say(text_of(m_demo.profiles.size(), " key files"));
}

void Verifier::index(const std::string& below, const std::string& folder,
                     const IndexRecord& expected) {
  const std::string bytes = read_whole(native(folder + "\\index.dat"));
  m_demo.report.check(bytes.size() == expected.size && fnv1a(bytes) == expected.hash,
                      below + ": index.dat has the same bytes");
  std::vector<std::string> physical;
  const std::vector<std::string> logical =
      vu_storage::getAllFileListFromIndexFile(folder, physical);
  std::set<std::pair<std::string, std::string>> entries;
  for (std::size_t i = 0; i < logical.size(); ++i) entries.insert({physical[i], logical[i]});
  m_demo.report.check(entries == expected.entries, below + ": the library lists the same entries");
}

void Verifier::indexes() {
  m_demo.report.begin("Indexes");
  m_left_out = 0;
  const std::map<std::string, std::string> folders = index_folders();
  m_demo.report.check(folders.size() == m_demo.indexes.size(),
                      "the number of folders with an index");
  std::size_t lines = 0;
  for (const auto& [below, expected] : m_demo.indexes) {
    if (!can_say(below)) continue;
    const auto folder = folders.find(below);
    if (!m_demo.report.check(folder != folders.end(), below + " has an index")) continue;
    index(below, folder->second, expected);
    lines += expected.entries.size();
  }
  m_demo.report.say(text_of(m_demo.indexes.size() - m_left_out, " folders with ", lines,
                            " entries; ", m_left_out, " folders omitted"));
}

}  // namespace

void verify(Demo& demo) {
  Verifier verifier(demo);
  verifier.versions();
  verifier.parts();
  verifier.profiles();
  verifier.indexes();
}

}  // namespace demo
