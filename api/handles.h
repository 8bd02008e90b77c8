#pragma once

#include <cstdint>
#include <memory>
#include <utility>

/// @file
/// The table of the handles of the C interface. A handle is the place and the generation of a slot,
/// not an address. So a closed handle, an invalid one and one of another kind are recognised.
namespace api {

enum class Kind : std::uint8_t { kFree = 0, kStore, kStream };

enum class Sharing : std::uint8_t {
  kShared,     ///< any number of calls at once
  kExclusive,  ///< one call at a time
};

/// What a handle refers to. Derived classes are final; the Kind of the handle says which one it is.
class Object {
 public:
  virtual ~Object() = default;
};

namespace handles {

enum class Found : std::uint8_t { kYes, kNone, kBusy };

/// Adds an object and returns its handle. @throws std::bad_alloc also at 1,048,576 open handles.
void* add(Kind kind, std::unique_ptr<Object> object);
/// Marks the object as used. If it was found, @p object is set, and give_back() must follow.
Found acquire(const void* handle, Kind kind, Sharing sharing, Object*& object) noexcept;
void give_back(const void* handle) noexcept;
/// Closes a handle that no call uses, and returns its object.
Found take_out(const void* handle, Kind kind, std::unique_ptr<Object>& object) noexcept;

}  // namespace handles

/// Uses the object of a handle during one call. Check found() first: object() is valid only after
/// Found::kYes. No other thread can close the handle during that time. Nothing throws.
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
