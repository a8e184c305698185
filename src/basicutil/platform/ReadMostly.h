// A shared value that every call reads and that is replaced now and then (a channel's list of
// appenders). Readers take no lock and write no cache line that another thread writes, so threads
// that read at the same time do not slow each other down; a replacement returns once no reader
// can still see the value it replaced, and releases that value then.
//
//   ReadMostly<std::vector<int>> numbers;
//   numbers.replace(std::make_shared<const std::vector<int>>(...));   // rare; waits
//   { ReadMostly<std::vector<int>>::Reader read(numbers); use(read.get()); }   // every call
//
// How: readers are counted in 32 counters, each on its own cache line, a thread always using the
// same one; a count belongs to the epoch (odd or even) in which the read began. A replacement
// publishes the new value, moves the process-wide epoch on, and waits until the counts of the old
// epoch are zero: every read that could have seen the old value has then ended. Replacements are
// serialised; only they ever wait.
//
// Rules, asserted where they can be: no replacement from inside a read (it would wait for
// itself); a Reader stays in the thread that made it; no fork() from inside a read (the child's
// counts start at zero).
#pragma once

#include <atomic>
#include <memory>
#include <mutex>

namespace basicutil {

namespace read_mostly_details {

// Begins a read in the calling thread; the ticket goes back to leave().
unsigned enter() noexcept;
// Ends the read that `ticket` began.
void leave(unsigned ticket) noexcept;
// Returns once every read that began before the call has ended.
void synchronize();

}  // namespace read_mostly_details

// The value (above); null until the first replace().
template <typename T>
class ReadMostly {
  public:
    ReadMostly() = default;
    ReadMostly(const ReadMostly&) = delete;
    ReadMostly& operator=(const ReadMostly&) = delete;

    // One read: the value as it was when the read began, alive until the Reader goes.
    class Reader {
      public:
        // Begins the read of `source`'s value; the read ends with the Reader.
        explicit Reader(const ReadMostly& source) noexcept
            : _ticket(read_mostly_details::enter()),
              _value(source._current.load(std::memory_order_seq_cst)) {}
        ~Reader() { read_mostly_details::leave(_ticket); }
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;

        // The value, or null.
        const T* get() const noexcept { return _value; }

      private:
        unsigned _ticket;
        const T* _value;
    };

    // Puts `value` (null: none) in place, waits until no read can see the value it replaces, and
    // releases that one, in this thread.
    void replace(std::shared_ptr<const T> value) {
        std::shared_ptr<const T> old;
        {
            std::lock_guard<std::mutex> lock(_mutex);
            old = std::move(_owner);
            _owner = std::move(value);
            _current.store(_owner.get(), std::memory_order_seq_cst);
            read_mostly_details::synchronize();
        }
    }

    // The value as a counted reference, for a caller that keeps it past a read.
    std::shared_ptr<const T> load() const {
        std::lock_guard<std::mutex> lock(_mutex);
        return _owner;
    }

  private:
    std::atomic<const T*> _current{nullptr};
    mutable std::mutex _mutex;  // replace() and load(): the owning reference
    std::shared_ptr<const T> _owner;
};

}  // namespace basicutil
