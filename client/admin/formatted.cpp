#include "client/admin/formatted.h"

#include <fmt/args.h>
#include <fmt/format.h>

#include <iterator>

namespace admin {

void append_filled(std::string& text, std::string_view pattern, const FormatArgument* arguments,
                   std::size_t count) {
  fmt::dynamic_format_arg_store<fmt::format_context> store;
  store.reserve(count, 0);
  for (std::size_t i = 0; i < count; ++i) {
    const FormatArgument& each = arguments[i];
    switch (each.kind()) {
      case FormatArgument::Kind::kSigned:
        store.push_back(each.signed_number());
        break;
      case FormatArgument::Kind::kUnsigned:
        store.push_back(each.unsigned_number());
        break;
      case FormatArgument::Kind::kReal:
        store.push_back(each.real_number());
        break;
      case FormatArgument::Kind::kCharacter:
        store.push_back(each.character());
        break;
      case FormatArgument::Kind::kText:
        store.push_back(fmt::string_view(each.text().data(), each.text().size()));
        break;
    }
  }
  fmt::vformat_to(std::back_inserter(text), fmt::string_view(pattern.data(), pattern.size()),
                  store);
}

}  // namespace admin
