#include "client/admin/formatted.h"

#include <fmt/args.h>
#include <fmt/format.h>

#include <iterator>

namespace admin {

void append_filled(std::string& text, std::string_view pattern,
                   std::initializer_list<FormatArgument> arguments) {
  fmt::dynamic_format_arg_store<fmt::format_context> store;
  store.reserve(arguments.size(), 0);
  for (const FormatArgument& each : arguments) {
    if (const auto* const bytes = std::get_if<std::string_view>(&each)) {
      // The store copies other kinds of texts.
      store.push_back(fmt::string_view(bytes->data(), bytes->size()));
    } else {
      std::visit([&](const auto& value) { store.push_back(value); }, each);
    }
  }
  fmt::vformat_to(std::back_inserter(text), fmt::string_view(pattern.data(), pattern.size()),
                  store);
}

}  // namespace admin
