// Plans which source file is stored as which version of which document.
#include <algorithm>
#include <array>
#include <map>
#include <tuple>

#include "demo.h"

namespace demo {

namespace {

// 2008-01-01 00:00 UTC; each further version is a day later.
constexpr long kFirstStamp = 1199145600;
constexpr long kDay = 86400;

constexpr std::array kAreas{STG::CorporateRepository, STG::UserRepository,
                            STG::CorporateRepository, STG::MailRepository,
                            STG::CorporateRepository, STG::UserFilesRepository,
                            STG::MailFilesRepository};

/// A document without its timestamps.
struct Document {
  std::string owner;
  STG::RepositoryType type;
  std::string entry;
};

class Planner {
 public:
  explicit Planner(Demo& demo)
      : m_demo(demo),
        m_owners{"anna.schmidt", "bernd", "Sales Team", demo.beyond_ascii ? "zoë" : "zoe"} {}

  void plan() {
    Document document{};
    for (std::size_t i = 0; i < m_demo.sources.files.size(); ++i) {
      const SourceFile& file = m_demo.sources.files[i];
      // The last three of five files are versions of one document.
      if (i % 5 < 3) document = new_document(file);
      add(document, file);
    }
  }

 private:
  Document new_document(const SourceFile& file);
  void add(const Document& document, const SourceFile& file);

  Demo& m_demo;
  std::array<std::string, 4> m_owners;
  std::size_t m_documents = 0;
  std::map<std::tuple<std::string, std::string, std::string>, long> m_known;
};

Document Planner::new_document(const SourceFile& file) {
  const std::size_t number = m_documents++;
  Document document{m_owners[number % m_owners.size()], kAreas[number % kAreas.size()], file.name};
  switch (number % 4) {
    case 1:
      document.entry += ".kd";
      document.entry += static_cast<char>('a' + number / 4 % 7);
      break;
    case 2:
      document.entry += ".kdf";
      break;
    default:
      break;
  }
  return document;
}

void Planner::add(const Document& document, const SourceFile& file) {
  Version version;
  version.owner = document.owner;
  version.type = document.type;
  version.entry = document.entry;
  version.source = utf8(file.path);
  version.size = file.size;
  // A file of the same name from another folder is a further version of the same document.
  const long number = m_known[{area_of(document.type), document.owner, document.entry}]++;
  const bool exact =
      document.type == STG::CorporateRepository && vu_file::getExtension(document.entry) == "kdf";
  if (exact || number > 0) version.stamp = kFirstStamp + number * kDay;
  m_demo.versions.push_back(std::move(version));
}

}  // namespace

void plan_versions(Demo& demo) {
  demo.report.begin("Choosing real files");
  for (const std::string& folder : demo.options.sources) demo.report.say("from " + folder);
  demo.sources = collect(demo.options.sources, demo.options.max_files, demo.beyond_ascii);
  const Collection& found = demo.sources;
  if (found.files.empty())
    throw Refusal("there is no file to store below " + demo.options.sources.front() +
                  ": name folders with files by --source DIR");

  std::uint64_t bytes = 0;
  std::uint64_t largest = 0;
  std::array<std::size_t, 5> kinds{};
  for (const SourceFile& file : found.files) {
    bytes += file.size;
    largest = std::max(largest, file.size);
    if (file.name.find(' ') != std::string::npos) ++kinds[0];
    if (std::count(file.name.begin(), file.name.end(), '.') > 1) ++kinds[1];
    if (!is_ascii(file.name)) ++kinds[2];
    if (file.name.find('.') == std::string::npos) ++kinds[3];
    if (file.size == 0) ++kinds[4];
  }
  demo.report.say(text_of(found.files.size(), " of ", found.files_seen, " files in ",
                          found.folders_seen, " folders: ", size_text(bytes), ", the largest ",
                          size_text(largest), ", ", kinds[4], " empty"));
  demo.report.say(text_of("names: ", kinds[0], " with blanks, ", kinds[1], " with several dots, ",
                          kinds[2], " beyond ASCII, ", kinds[3], " without a dot"));
  demo.report.say(text_of("omitted: ", found.not_storable,
                          " with a name that Windows or an index line does not allow, ",
                          found.not_in_codepage, " with letters that the code page lacks, ",
                          found.too_large, " of more than 8 MB"));
  Planner(demo).plan();
}

}  // namespace demo
