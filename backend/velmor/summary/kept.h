#pragma once

// What readers of a summary share.

#include <mutex>
#include <optional>
#include <stdexcept>

namespace velmor {

// A value that is made for the first reader and kept for the others, until it changes. Any number
// of threads may read at once.
template <class Value>
class Kept {
 public:
  // Calls read() alone, since what it reads may put work off that it is not done with. Throws
  // std::logic_error while there is a Change, as a callback of the change's own would.
  template <class Read>
  auto Alone(const Read& read) const {
    const std::lock_guard lock(_mutex);
    CheckUnchanging();
    return read();
  }
  // The value, which make() makes alone if none is kept. Throws as Alone.
  template <class Make>
  const Value& Get(const Make& make) const {
    const std::lock_guard lock(_mutex);
    CheckUnchanging();
    if (!_value) {
      _value = make();
    }
    return *_value;
  }

  // From here to its end nobody reads.
  class Change {
   public:
    explicit Change(Kept& kept) : _kept(kept) {
      kept.Alone([&kept] { kept._isChanging = true; });
    }
    ~Change() { _kept._isChanging = false; }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

    // The value is to be made anew.
    void Forget() noexcept { _kept._value.reset(); }

   private:
    Kept& _kept;
  };

 private:
  void CheckUnchanging() const {
    if (_isChanging) {
      throw std::logic_error("the summary is used by its own update's progress function");
    }
  }

  mutable std::mutex _mutex;
  mutable std::optional<Value> _value;
  bool _isChanging = false;
};

}  // namespace velmor
