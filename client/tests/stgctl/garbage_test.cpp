#include <random>

#include "client/tests/stgctl/fixture.h"

class ClientGarbage : public Client {};

TEST_F(ClientGarbage, SurvivesAnyTreeAndChangesNothingInDryRuns) {
  std::mt19937 random(20240501);
  const auto bytes = [&](std::size_t count) {
    // Much of what means something in an index, and a little of everything.
    const std::string alphabet = "a/_0123456789\n\n//.\\*?=\t\r% kdcindex";
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
      text += random() % 8 == 0 ? static_cast<char>(random() % 256)
                                : alphabet[random() % alphabet.size()];
    }
    return text;
  };
  init();
  for (const char* const place :
       {"\\user\\anna", "\\mail\\anna", "\\docs\\anna\\00000001", "\\docs\\anna\\4294967291"}) {
    make_folder(storage() + place);
    write_file(storage() + place + "\\index.dat", bytes(3000));
    write_file(storage() + place + "\\index", bytes(20));
    write_file(storage() + place + "\\00000001.kdc", bytes(10));
    write_file(storage() + place + "\\A.KDC", bytes(10));
  }
  write_file(storage() + "\\docs\\stray", "x");
  write_file(storage() + "\\user\\anna\\attribut.txt", bytes(500));
  make_folder(storage() + "\\docs\\anna\\no bucket");
  const std::string before = tree();
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"put", source("a.kdc", "x"), "-n"},
                                             {"get", "a.kdc", "-n"},
                                             {"rm", "--match", "*", "-n"},
                                             {"rm", "--match", "*", "--area", "user", "-n"},
                                             {"mv", "A.KDC", "b.kdc", "-n"},
                                             {"keys", "set", "attribut.txt", "a=b", "-n"},
                                             {"clean", "--max-size", "1", "-n"},
                                             {"sync", "-n"},
                                             {"migrate", "inbox", "-n"},
                                             {"user", "list"},
                                             {"user", "remove", "anna", "-n"}}) {
    std::vector<std::string> arguments = command;
    if (command[0] != "user") arguments.insert(arguments.end(), {"--owner", "anna"});
    arguments.emplace_back("--json");
    const outcome result = on_tree(arguments);
    EXPECT_TRUE(result.code == 0 || result.code == 1 || result.code == 3 || result.code == 5 ||
                result.code == 12)
        << command[0] << " " << result.code << ": " << result.err;
    for (const std::string& line : lines_of(result.out)) {
      EXPECT_TRUE(Json::accept(line)) << command[0] << ": " << line;
    }
    EXPECT_EQ(tree(), before) << command[0];
  }
}
