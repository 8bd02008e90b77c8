#pragma once

#include <cstdint>
#include <memory>
#include <utility>

/// @file
/// The table behind the handles of the C interface. A handle is the place and the generation of an
/// entry, never an address: one that is closed, forged or of another kind is recognised.
namespace api {

enum class Kind : std::uint8_t { kFree = 0, kStore, kStream };

enum class Sharing : std::uint8_t {
  kShared,     ///< any number of threads at once
  kExclusive,  ///< one at a time
};

/// What a handle leads to.
class Object {
 public:
  virtual ~Object() = default;
};

namespace handles {

enum class Found : std::uint8_t { kYes, kNone, kBusy };

/// Enters an object. @throws std::bad_alloc also when a million handles are open.
void* add(Kind kind, std::unique_ptr<Object> object);
/// Marks the handle's object as used. @p object is set when it was found, and must be given back.
Found acquire(const void* handle, Kind kind, Sharing sharing, Object*& object) noexcept;
void give_back(const void* handle) noexcept;
/// Ends a handle that nobody uses, and hands its object out.
Found take_out(const void* handle, Kind kind, std::unique_ptr<Object>& object) noexcept;

}  // namespace handles

/// The use of a handle's object during one call.
class Use {
 public:
  Use(const void* handle, Kind kind, Sharing sharing) noexcept
      : m_handle(handle), m_found(handles::acquire(handle, kind, sharing, m_object)) {}
  ~Use() {
    if (m_object != nullptr) handles::give_back(m_handle);
  }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;

  handles::Found found() const { return m_found; }
  Object& object() const { return *m_object; }

 private:
  const void* m_handle;
  Object* m_object = nullptr;
  handles::Found m_found;
};

}  // namespace api
