#include "lab/interleavings/pairs.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace interleavings {
namespace {

constexpr std::array<Names, 5> kAllNames = {Names::kSame, Names::kSameNew, Names::kOther,
                                            Names::kOtherNew, Names::kOtherFolder};
constexpr std::array<Ground, 3> kAllGrounds = {Ground::kTidy, Ground::kStray, Ground::kNoIndex};

const char* name_of(Names names) {
  switch (names) {
    case Names::kSame:
      return "same";
    case Names::kSameNew:
      return "same-new";
    case Names::kOther:
      return "other";
    case Names::kOtherNew:
      return "other-new";
    case Names::kOtherFolder:
      return "other-folder";
  }
  return "?";
}

bool is_in(const MeetingOperation& operation, std::string_view area) {
  return operation.area == area;
}

/// Whether the two can touch a file together at all.
bool can_meet(const MeetingOperation& a, const MeetingOperation& b) {
  if (a.does(kBegins) || b.does(kBegins)) return false;
  if (std::string_view(a.area) == b.area) return true;
  // An owner's mails go with it; nothing else of another area does.
  return (a.does(kMovesOwner) && is_in(b, "mail")) || (b.does(kMovesOwner) && is_in(a, "mail"));
}

/// Whether the names make a pair of its own.
bool is_worth(const MeetingOperation& a, const MeetingOperation& b, Names names, Ground ground,
              bool synchronize) {
  const bool about_two = a.is_about_entry && b.is_about_entry;
  const bool about_one = a.is_about_entry || b.is_about_entry;
  const bool changes = a.deeds != kAsks && b.deeds != kAsks;
  const bool makes = a.does(kMakes) || b.does(kMakes);
  // Names that were saved belong to an index.
  if (ground == Ground::kNoIndex && (a.name == "restore" || b.name == "restore")) return false;
  switch (names) {
    case Names::kSame:
      return true;
    case Names::kSameNew:
      return about_one && makes && ground != Ground::kNoIndex;
    case Names::kOther:
      return about_two && ground == Ground::kTidy;
    case Names::kOtherNew:
      return about_two && a.does(kMakes) && b.does(kMakes) && ground != Ground::kStray;
    case Names::kOtherFolder:
      return changes && about_two && ground == Ground::kTidy && !synchronize;
  }
  return false;
}

/// Two questions meet only where the first one of a folder writes.
bool can_differ(const MeetingOperation& a, const MeetingOperation& b, Ground ground,
                bool synchronize) {
  const auto only_asks = [](const MeetingOperation& each) {
    return (each.deeds & ~(kReads | kCopies)) == 0;
  };
  if (!only_asks(a) || !only_asks(b)) return true;
  return ground == Ground::kNoIndex || (ground == Ground::kStray && synchronize);
}

}  // namespace

Cast Gathering::cast_of(std::size_t who, const std::string& root) const {
  Cast cast{root, "anna", kOld, "moved.kdb", std::string("by ") + static_cast<char>('A' + who)};
  if (names == Names::kSameNew || names == Names::kOtherNew) cast.entry = "new.kdb";
  if (who != 1) return cast;
  if (names == Names::kOtherFolder) cast.owner = "bert";
  if (names == Names::kOther) cast.entry = kYoung;
  if (names == Names::kOtherNew) cast.entry = "newer.kdb";
  if (names == Names::kOther || names == Names::kOtherNew) cast.to = "moved-too.kdb";
  return cast;
}

std::vector<Operation> Gathering::ready(const std::string& root) const {
  std::vector<Operation> ready;
  for (std::size_t i = 0; i < operations.size(); ++i) {
    ready.emplace_back(
        [call = operations[i]->call, cast = cast_of(i, root)] { return call(cast); });
  }
  return ready;
}

std::string in_text(const Gathering& gathering) {
  std::string text;
  for (const MeetingOperation* const each : gathering.operations)
    text += (text.empty() ? "" : " + ") + each->name;
  return text + ", " + name_of(gathering.names) + ", " + name_of(gathering.ground) + ", " +
         (gathering.synchronize ? "on" : "off");
}

Gathering gathering_from(const std::string& text) {
  Gathering gathering;
  std::string plain = text;
  std::replace(plain.begin(), plain.end(), ',', ' ');
  std::replace(plain.begin(), plain.end(), '+', ' ');
  std::vector<std::string> words;
  std::istringstream in(plain);
  for (std::string word; in >> word;) words.push_back(word);
  if (words.size() < 5) throw std::invalid_argument("'" + text + "' is no meeting");
  gathering.synchronize = words.back() == "on";
  const std::string ground = words[words.size() - 2];
  const std::string names = words[words.size() - 3];
  for (const Ground each : kAllGrounds) {
    if (name_of(each) == ground) gathering.ground = each;
  }
  for (const Names each : kAllNames) {
    if (name_of(each) == names) gathering.names = each;
  }
  words.resize(words.size() - 3);
  for (const std::string& each : words) gathering.operations.push_back(&operation_called(each));
  if (in_text(gathering) != text) throw std::invalid_argument("'" + text + "' is no meeting");
  return gathering;
}

std::vector<Gathering> all_pairs() {
  std::vector<Gathering> pairs;
  const auto& all = operations();
  for (std::size_t a = 0; a < all.size(); ++a) {
    for (std::size_t b = a; b < all.size(); ++b) {
      if (!can_meet(all[a], all[b])) continue;
      for (const Names names : kAllNames) {
        for (const Ground ground : kAllGrounds) {
          for (const bool synchronize : {false, true}) {
            if (is_worth(all[a], all[b], names, ground, synchronize) &&
                can_differ(all[a], all[b], ground, synchronize))
              pairs.push_back({{&all[a], &all[b]}, names, ground, synchronize});
          }
        }
      }
    }
  }
  return pairs;
}

std::vector<Gathering> all_trios() {
  std::vector<Gathering> trios;
  const std::array changing = {"create", "remove", "rename", "rename-onto", "write", "copy-in"};
  for (const char* const reader : {"read", "exists", "names"}) {
    for (std::size_t a = 0; a < changing.size(); ++a) {
      for (std::size_t b = a; b < changing.size(); ++b) {
        for (const Names names : {Names::kSame, Names::kOther}) {
          trios.push_back({{&operation_called(changing[a]), &operation_called(changing[b]),
                            &operation_called(reader)},
                           names,
                           Ground::kTidy,
                           false});
        }
      }
    }
  }
  return trios;
}

}  // namespace interleavings
