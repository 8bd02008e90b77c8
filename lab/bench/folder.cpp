#include "lab/bench/folder.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <numeric>
#include <random>
#include <utility>

#include "lab/bench/bare.h"

namespace bench {
namespace {

constexpr long kFirstTimestamp = 1700000000;

}  // namespace

std::string key_of(std::string_view logical, long timestamp) {
  char stamp[16];
  std::snprintf(stamp, sizeof stamp, "_%.10u", static_cast<unsigned>(timestamp));
  return std::string(logical) + stamp;
}

std::string stored_name(std::size_t number) {
  char text[24];
  std::snprintf(text, sizeof text, "%.8zu", number);
  return text;
}

void put_file(const std::string& path, std::string_view bytes) {
  const bare::File file(path, bare::File::Mode::kReadWriteCreate);
  file.write_at(0, bytes);
  file.cut(bytes.size());
  file.flush();
}

Folder::Folder(std::string path, std::size_t entries, std::string extension)
    : m_path(std::move(path)), m_extension(std::move(extension)), m_numbers(entries) {
  std::filesystem::remove_all(m_path);
  std::filesystem::create_directories(m_path);
  std::iota(m_numbers.begin(), m_numbers.end(), std::size_t{1});
  std::shuffle(m_numbers.begin(), m_numbers.end(), std::mt19937_64(7));
  for (std::size_t i = 0; i < entries; ++i) {
    m_text += key_of(logical(i), timestamp(i)) + "/" + stored_name(m_numbers[i]) + "\n";
    make_file(file(i));
  }
  write_index();
}

Folder::~Folder() {
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
}

std::string Folder::logical(std::size_t entry) const {
  char text[32];
  std::snprintf(text, sizeof text, "Report %06zu", entry);
  return text + m_extension;
}

long Folder::timestamp(std::size_t entry) const {
  return kFirstTimestamp + static_cast<long>(entry);
}

std::string Folder::file(std::size_t entry) const {
  return stored_name(m_numbers[entry]) + m_extension;
}

std::string Folder::next_file() const { return stored_name(entries() + 1) + m_extension; }

void Folder::make_file(const std::string& name) const {
  const bare::File file(path(name), bare::File::Mode::kReadWriteCreate);
}

void Folder::write_index() const {
  put_file(path("index"), stored_name(entries()));
  put_file(path("index.dat"), m_text);
}

void Folder::restore(const std::vector<std::string>& made,
                     const std::vector<std::string>& lost) const {
  std::error_code ignored;
  for (const std::string& name : made) std::filesystem::remove(path(name), ignored);
  for (const std::string& name : lost) make_file(name);
  write_index();
}

}  // namespace bench
