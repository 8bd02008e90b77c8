#include "client/tests/stgctl/fixture.h"

#if !defined(_WIN32)
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace fs = std::filesystem;

namespace {

fs::path path_of(const std::string& path) {
#if defined(_WIN32)
  return std::u8string(path.begin(), path.end());
#else
  return shell_path(path);
#endif
}

std::string text_of(const fs::path& path) {
  const std::u8string text = path.generic_u8string();
  return {text.begin(), text.end()};
}

std::uint64_t hash_of(const std::string& bytes) {
  // FNV-1a: good enough to detect a changed file in a test.
  std::uint64_t hash = 14695981039346656037ULL;
  for (const char c : bytes) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
  return hash;
}

}  // namespace

std::string shell_path(std::string path) {
#if !defined(_WIN32)
  std::replace(path.begin(), path.end(), '\\', '/');
#endif
  return path;
}

std::string snapshot(const std::string& folder) {
  std::vector<std::string> lines;
  const fs::path root = path_of(folder);
  if (!fs::exists(root)) return "(nothing)";
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    std::ostringstream line;
    const fs::file_status status = entry.symlink_status();
    line << text_of(entry.path().lexically_relative(root)) << " kind "
         << static_cast<int>(status.type()) << " mode " << static_cast<int>(status.permissions());
    if (status.type() != fs::file_type::symlink) {
      line << " time " << entry.last_write_time().time_since_epoch().count();
    }
    if (status.type() == fs::file_type::regular) {
      line << " size " << entry.file_size() << " hash "
           << hash_of(read_file(entry.path().string()));
    }
    lines.push_back(line.str());
  }
  std::sort(lines.begin(), lines.end());
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

std::string messages(const outcome& of) {
  std::string text = of.err;
  std::erase(text, '\r');
  return text;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> actions(const std::vector<Json>& lines) {
  std::vector<std::string> texts;
  for (const Json& line : lines) {
    if (line.value("record", "") != "entry") continue;
    texts.push_back(line.at("action").get<std::string>() + " " + line.value("name", ""));
  }
  return texts;
}

Client::Client() {
  make_folder(root());
  make_folder(m_scratch.path("in"));
}

outcome Client::run(const std::vector<std::string>& arguments, Environment environment) {
  environment.try_emplace("STG_ROOT", "");
  environment.try_emplace("NO_COLOR", "");
  return running_program(arguments, environment).wait();
}

outcome Client::on_tree(std::vector<std::string> arguments, Environment environment) {
  arguments.insert(arguments.end(), {"--root", shell_path(root())});
  return run(arguments, std::move(environment));
}

outcome Client::change(std::vector<std::string> arguments) {
  arguments.insert(arguments.end(), {"--owner", "anna", "--yes"});
  return on_tree(std::move(arguments));
}

#if !defined(_WIN32)

void Client::open_to_all() const {
  for (const fs::path& each : fs::recursive_directory_iterator(shell_path(root())))
    fs::permissions(each, fs::perms::all);
  for (const char* const folder : {"", "in", "root"})
    fs::permissions(shell_path(m_scratch.path(folder)), fs::perms::all);
}

outcome Client::change_as_nobody(const std::vector<std::string>& arguments) const {
  const std::string out = shell_path(m_scratch.path("out"));
  const std::string err = shell_path(m_scratch.path("err"));
  // Without root the user has no rights of its own already.
  std::string command = geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
  command += "'" + client_path() + "'";
  for (const std::string& each : arguments) command += " '" + each + "'";
  command +=
      " --owner anna --yes --root '" + shell_path(root()) + "' >'" + out + "' 2>'" + err + "'";
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(out), read_file(err)};
}

#endif

std::vector<Json> Client::json(std::vector<std::string> arguments, int code) {
  arguments.emplace_back("--json");
  const outcome result = on_tree(std::move(arguments));
  EXPECT_EQ(result.code, code) << result.err;
  std::vector<Json> parsed;
  for (const std::string& line : lines_of(result.out)) parsed.push_back(Json::parse(line));
  return parsed;
}

void Client::init(const std::vector<std::string>& more) {
  std::vector<std::string> arguments = {"init", "--yes"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const outcome result = on_tree(arguments);
  ASSERT_EQ(result.code, 0) << result.err;
}

std::string Client::source(const std::string& name, const std::string& bytes, std::int64_t time) {
  const std::string path = m_scratch.path("in\\" + name);
  write_file(path, bytes);
  set_modify_time(path, time);
  return shell_path(path);
}

void Client::put(const std::string& name, const std::string& bytes, long timestamp,
                 std::int64_t time) {
  const outcome result = change(
      {"put", source(name, bytes, time), "--timestamp", std::to_string(timestamp), "--replace"});
  ASSERT_EQ(result.code, 0) << result.err;
}

std::string Client::get(const std::string& name, const std::vector<std::string>& more) {
  std::vector<std::string> arguments = {"get", name, "--output", "-", "--owner", "anna"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const outcome result = on_tree(arguments);
  return result.code == 0 ? result.out : result.err;
}

std::string Client::physical(const std::string& area, const std::string& name) const {
  for (const fs::directory_entry& entry :
       fs::recursive_directory_iterator(path_of(storage() + "\\" + area))) {
    if (entry.path().filename() != "index.dat") continue;
    for (const std::string& line : lines_of(read_file(entry.path().string()))) {
      if (!line.starts_with(name + "_")) continue;
      const std::string stored = line.substr(line.find('/') + 1);
      for (const fs::directory_entry& file : fs::directory_iterator(entry.path().parent_path())) {
        const std::string found = text_of(file.path().filename());
        const bool is_folder = file.is_directory();
        if (!is_folder && (found == stored || found.starts_with(stored + ".")))
          return file.path().string();
      }
    }
  }
  return "(no file)";
}
