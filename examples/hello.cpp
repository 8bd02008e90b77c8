// Stores a document and reads it back: hello_storage [FOLDER]
#include <iostream>

#include "vu/storage.hpp"

int main(int argc, char** argv) try {
  vu::store store(argc > 1 ? argv[1] : "hello-storage", vu::make_root);
  const vu::key greeting{vu::area::docs, "anna", "greeting.kdf", 20240501};
  store.put(greeting, "Hello, storage!\n");
  std::cout << store.read(greeting).value();
  return std::cout.flush() ? 0 : 1;
} catch (const vu::error& error) {
  std::cerr << error.what() << "\n";
  return 1;
}
