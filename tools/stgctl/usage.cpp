#include "tools/stgctl/usage.h"

#include <sstream>

namespace stgctl {

namespace {

/// "WORD:{a,b}" taken apart.
void read_type(const std::string& type, OptionUsage& usage) {
  const std::size_t open = type.find(":{");
  usage.value = type.substr(0, open);
  if (open == std::string::npos || !type.ends_with('}')) return;
  std::istringstream choices(type.substr(open + 2, type.size() - open - 3));
  for (std::string choice; std::getline(choices, choice, ',');) usage.choices.push_back(choice);
}

OptionUsage usage_of(const CLI::Option& option) {
  OptionUsage usage;
  for (const std::string& name : option.get_snames()) usage.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) usage.names.push_back("--" + name);
  const bool is_flag = option.get_items_expected_max() == 0;
  if (!is_flag) read_type(option.get_type_name(), usage);
  if (usage.names.empty()) usage.positional = usage.value;
  usage.description = option.get_description();
  usage.group = option.get_group();
  usage.is_required = option.get_required();
  usage.is_repeated = option.get_items_expected_max() > 1;
  return usage;
}

void collect(const CLI::App& app, std::vector<std::string> path, std::vector<CommandUsage>& all) {
  CommandUsage usage;
  usage.path = path;
  usage.summary = app.get_description();
  usage.details = app.get_footer();
  usage.group = app.get_group();
  for (const CLI::Option* option : app.get_options()) usage.options.push_back(usage_of(*option));
  std::vector<const CLI::App*> below;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (sub->get_group().empty()) continue;
    below.push_back(sub);
    usage.subcommands.push_back(sub->get_name());
  }
  all.push_back(std::move(usage));
  for (const CLI::App* sub : below) {
    path.push_back(sub->get_name());
    collect(*sub, path, all);
    path.pop_back();
  }
}

}  // namespace

std::string CommandUsage::name() const {
  std::string text;
  for (const std::string& word : path) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::vector<CommandUsage> usage_of(const CLI::App& application) {
  std::vector<CommandUsage> all;
  collect(application, {}, all);
  return all;
}

}  // namespace stgctl
