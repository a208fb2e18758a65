// Blocking cells and channels: the two means by which the loader and its prefetch threads hand values to
// each other. A blocking cell is full or empty; taking empties it and waits while it is empty.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace vellum::resource::blocking {

/// A cell that holds at most one value; take() waits for one, put() fills it.
template <class T>
class blocking_cell {
public:
    blocking_cell() = default;
    explicit blocking_cell(T value) : cell_value(std::move(value)) {}

    /// Waits until the cell is full, empties it and returns the value.
    T take() {
        std::unique_lock guard(cell_mutex);
        cell_changed.wait(guard, [&] { return cell_value.has_value(); });
        T value = std::move(*cell_value);
        cell_value.reset();
        cell_changed.notify_all();
        return value;
    }

    /// Fills the cell; waits while it is full, so that no value is lost.
    void put(T value) {
        std::unique_lock guard(cell_mutex);
        cell_changed.wait(guard, [&] { return !cell_value.has_value(); });
        cell_value = std::move(value);
        cell_changed.notify_all();
    }

    /// Waits until the cell is full and returns a copy, leaving it full.
    T read() {
        std::unique_lock guard(cell_mutex);
        cell_changed.wait(guard, [&] { return cell_value.has_value(); });
        return *cell_value;
    }

    /// Takes the value, lets f change it, and puts it back, also when f throws. Returns what f returns.
    template <class F>
    auto with(F&& f) {
        T value = take();
        struct put_back {
            blocking_cell& cell;
            T& value;
            ~put_back() { cell.put(std::move(value)); }
        } guard{*this, value};
        return std::forward<F>(f)(value);
    }

private:
    std::mutex cell_mutex;
    std::condition_variable cell_changed;
    std::optional<T> cell_value;
};

/// An unbounded first-in first-out queue between threads.
template <class T>
class channel {
public:
    /// Appends a value; never waits.
    void send(T value) {
        {
            std::lock_guard guard(channel_mutex);
            channel_queue.push_back(std::move(value));
        }
        channel_ready.notify_one();
    }

    /// Waits for the oldest value and removes it.
    T receive() {
        std::unique_lock guard(channel_mutex);
        channel_ready.wait(guard, [&] { return !channel_queue.empty(); });
        T value = std::move(channel_queue.front());
        channel_queue.pop_front();
        return value;
    }

private:
    std::mutex channel_mutex;
    std::condition_variable channel_ready;
    std::deque<T> channel_queue;
};

} // namespace vellum::resource::blocking
