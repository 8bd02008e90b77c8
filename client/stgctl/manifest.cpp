#include "client/stgctl/manifest.h"

#include <array>
#include <nlohmann/json.hpp>

#include "client/stgctl/paths.h"

namespace stgctl {

namespace {

using Parsed = nlohmann::json;

/// A name as text, and also as bytes if it is not UTF-8.
void put_exact(Json& object, const char* key, const std::string& bytes) {
  const bool is_text = admin::is_utf8(bytes);
  object[key] = is_text ? bytes : admin::to_utf8(bytes);
  const auto is_kept = [](std::string_view part) { return admin::portable_name(part) == part; };
  const bool is_portable =
      is_text && (bytes.empty() || std::ranges::all_of(split(bytes, '/'), is_kept));
  if (!is_portable) object[std::string(key) + "_hex"] = admin::to_hex(bytes);
}

std::string exact(const Parsed& object, const char* key) {
  const std::string hex = std::string(key) + "_hex";
  if (!object.contains(hex)) return object.value(key, std::string());
  return from_hex(object.at(hex).get<std::string>()).value();
}

/// Whether the names between "/" stay below their folder, on every system.
bool stays_below(std::string_view path) {
  return path.find('\0') == std::string_view::npos &&
         std::ranges::none_of(split(path, '/'), [](std::string_view name) {
           return name.empty() || name == "." || name == "..";
         });
}

const char* why_no_item(const ManifestItem& item) {
  const admin::Holding& what = item.what;
  if (!stays_below(item.file) || item.file.find_first_of("\\:") != std::string::npos)
    return "its file is outside the export";
  const bool is_file = what.kind == admin::HoldingKind::kFile;
  if (is_file == admin::expects_index(what.area)) return "the area keeps nothing of that kind";
  if (!is_file && what.name.empty()) return "it has no name";
  if ((what.kind != admin::HoldingKind::kVersion) != stays_below(what.path))
    return "its path leaves its folder";
  if (what.kind == admin::HoldingKind::kPart && !what.path.starts_with('_'))
    return "its path is not the path of a sub-part";
  if (!what.owner.empty() &&
      (!stays_below(what.owner) || what.owner.find('/') != std::string::npos))
    return "its owner is not valid";
  return item.checksum.size() == 32 ? nullptr : "its checksum is not valid";
}

Json json_of(const ManifestItem& item) {
  const admin::Holding& what = item.what;
  Json line = {{"schema", kManifestSchema},
               {"record", admin::name_of(what.kind)},
               {"area", admin::name_of(what.area)}};
  if (!what.owner.empty()) put_exact(line, "owner", what.owner);
  if (what.kind != admin::HoldingKind::kFile) {
    put_exact(line, "name", what.name);
    line["timestamp"] = what.timestamp;
  }
  if (what.kind != admin::HoldingKind::kVersion) put_exact(line, "path", what.path);
  line["file"] = item.file;
  line["bytes"] = what.info.size;
  line["modified"] = what.info.modify_time;
  line["xxh128"] = item.checksum;
  return line;
}

admin::Area area_of(const Parsed& line) {
  return admin::area_named(line.at("area").get<std::string>()).value();
}

ManifestItem item_of(const Parsed& line, admin::HoldingKind kind) {
  ManifestItem item;
  admin::Holding& what = item.what;
  what.kind = kind;
  what.area = area_of(line);
  what.owner = exact(line, "owner");
  what.name = exact(line, "name");
  what.timestamp = line.value("timestamp", std::int32_t{0});
  what.path = exact(line, "path");
  if (what.area == admin::Area::kDocs) what.bucket = admin::bucket_of(what.name);
  what.info.kind = sys::Kind::kFile;
  what.info.size = line.at("bytes").get<std::uint64_t>();
  what.info.modify_time = line.at("modified").get<std::int64_t>();
  item.file = line.at("file").get<std::string>();
  item.checksum = line.at("xxh128").get<std::string>();
  return item;
}

}  // namespace

void ManifestSums::add(const ManifestItem& item) {
  const std::array<std::uint64_t*, 3> counts = {&versions, &parts, &files};
  ++*counts[static_cast<std::size_t>(item.what.kind)];
  bytes += item.what.info.size;
}

std::string ManifestSums::in_words() const {
  return formatted("{} versions, {} sub-parts, {} files by path", versions, parts, files);
}

Json ManifestSums::fields() const {
  return {{"versions", versions}, {"parts", parts}, {"files", files}, {"bytes", bytes}};
}

// ---- writing -----------------------------------------------------------------------------------

ManifestWriter::ManifestWriter(const std::string& folder, const ManifestHead& head)
    : m_file(joined(folder, kManifestName), joined(folder, kUnfinishedManifestName),
             NewFile::IfGivenUp::kKeep) {
  Json first = {
      {"schema", kManifestSchema}, {"record", "tree"}, {"layout", admin::name_of(head.layout)}};
  if (head.scope.area) first["area"] = admin::name_of(*head.scope.area);
  if (head.scope.owner) put_exact(first, "owner", *head.scope.owner);
  line(first.dump() + "\n");
}

void ManifestWriter::line(const std::string& text) {
  m_checksum.add(text);
  m_file.write(text);
}

void ManifestWriter::add(const ManifestItem& item) {
  m_sums.add(item);
  line(json_of(item).dump() + "\n");
}

void ManifestWriter::end(std::uint64_t failed) {
  Json last = {{"schema", kManifestSchema}, {"record", "end"}};
  last.update(m_sums.fields());
  last.update({{"failed", failed}, {"xxh128", m_checksum.text()}});
  line(last.dump() + "\n");
  m_file.commit();
}

// ---- reading -----------------------------------------------------------------------------------

ManifestReader::ManifestReader(const std::string& folder) : m_path(joined(folder, kManifestName)) {
  m_stream.open(to_path(m_path), std::ios::binary);
  if (!m_stream.is_open())
    fail("{} contains no {}; name the folder of a finished export", shown(folder), kManifestName);
  read_head();
}

void ManifestReader::damaged(const std::string& why) const {
  fail("{} is damaged (line {}: {}); export the tree again", shown(m_path), m_line, why);
}

bool ManifestReader::read_line(std::string& text) {
  ++m_line;
  if (!std::getline(m_stream, text)) return false;
  if (m_stream.eof()) damaged("it ends too early");
  text += '\n';
  return true;
}

void ManifestReader::read_head() {
  std::string text;
  if (!read_line(text)) damaged("it is empty");
  m_checksum.add(text);
  try {
    const Parsed line = Parsed::parse(text);
    if (line.at("record") != "tree") damaged("it does not begin as a manifest");
    if (line.at("schema") != kManifestSchema) damaged("this program does not know its version");
    const bool is_flat = line.at("layout") == "flat";
    m_head.layout = is_flat ? admin::Layout::kFlat : admin::Layout::kOwner;
    if (line.contains("area")) m_head.scope.area = area_of(line);
    if (line.contains("owner")) m_head.scope.owner = exact(line, "owner");
  } catch (const Parsed::exception& error) {
    damaged(error.what());
  } catch (const std::bad_optional_access&) {
    damaged("a value is not valid");
  }
}

bool ManifestReader::next(ManifestItem& item) {
  std::string text;
  if (!read_line(text)) damaged("it ends too early");
  try {
    const Parsed line = Parsed::parse(text);
    const std::string record = line.at("record").get<std::string>();
    if (const auto kind = value_named<admin::HoldingKind>(admin::kHoldingKinds, record)) {
      m_checksum.add(text);
      item = item_of(line, *kind);
      if (const char* const why = why_no_item(item)) damaged(why);
      if (m_last && *m_last >= item.what) damaged("its records are in the wrong order");
      m_last = item.what;
      m_sums.add(item);
      return true;
    }
    if (record != "end") damaged("it has an unknown record");
    m_sums.failed = line.at("failed").get<std::uint64_t>();
    if (line.at("xxh128").get<std::string>() != m_checksum.text() ||
        line.at("versions").get<std::uint64_t>() != m_sums.versions ||
        line.at("parts").get<std::uint64_t>() != m_sums.parts ||
        line.at("files").get<std::uint64_t>() != m_sums.files ||
        line.at("bytes").get<std::uint64_t>() != m_sums.bytes)
      damaged("its totals or its checksum do not match");
  } catch (const Parsed::exception& error) {
    damaged(error.what());
  } catch (const std::bad_optional_access&) {
    damaged("a value is not valid");
  }
  if (read_line(text)) damaged("it continues after its end");
  return false;
}

// ---- reports -----------------------------------------------------------------------------------

Subject subject_of(const admin::Holding& what) {
  if (what.kind == admin::HoldingKind::kFile) return subject_in(what.area, what.owner, what.path);
  return subject_in(what.area, what.owner, what.name, what.timestamp);
}

Json fields_of(const ManifestItem& item) {
  Json fields = {{"kind", admin::name_of(item.what.kind)}};
  if (item.what.kind == admin::HoldingKind::kPart) fields["path"] = item.what.path;
  fields["file"] = item.file;
  fields["bytes"] = item.what.info.size;
  return fields;
}

std::string tail_of(const ManifestItem& item) {
  const std::string size = format_bytes(item.what.info.size);
  if (item.what.kind != admin::HoldingKind::kPart) return size;
  return formatted("{}  {}", shown(std::string_view(item.what.path)), size);
}

// ---- places and scopes -------------------------------------------------------------------------

std::string location_in(const std::string& folder, const std::string& file) {
  return from_path((to_path(folder) / to_path(file)).make_preferred());
}

admin::Scope common_scope(const admin::Scope& one, const admin::Scope& other) {
  if ((one.area && other.area && *one.area != *other.area) ||
      (one.owner && other.owner && *one.owner != *other.owner)) {
    not_found("the export contains nothing of that area and owner");
  }
  admin::Scope both = one;
  if (!both.area) both.area = other.area;
  if (!both.owner) both.owner = other.owner;
  return both;
}

bool is_in_scope(const admin::Holding& what, const admin::Scope& scope) {
  if (scope.area && *scope.area != what.area) return false;
  if (!scope.owner) return true;
  // As in the walk over a tree: items without an owner are selected only by area.
  if (what.area == admin::Area::kSemlets) return scope.area.has_value();
  return what.owner.empty() || what.owner == admin::owner_folder_name(*scope.owner);
}

}  // namespace stgctl
