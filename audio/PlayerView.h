#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>

namespace quorval {

// What the player needs of the display: the play mark (read and set), the selection, whether
// to loop it, whether sound is playing, and a redraw request. Times are seconds on the display's
// time axis.
//
// The player calls these on the "display" queue (its ticks, and its start, which it runs there
// too), never on the main thread: an implementation over main-thread state keeps copies that
// are safe to read there (atomics, or a lock), and asks for a redraw with Quorval::redisplay().
class PlayerView
{
public:
    struct Selection
    {
        double start = 0.0;
        double end = 0.0;
    };

    virtual ~PlayerView() = default;
    [[nodiscard]] virtual double playMark() const = 0;
    virtual void setPlayMark(double seconds) = 0;
    // Sound started (true) or stopped (false) coming out.
    virtual void setPlaying(bool on) = 0;
    // The selection when one is set.
    [[nodiscard]] virtual std::optional<Selection> selection() const = 0;
    // Play the selection (or the whole) again and again.
    [[nodiscard]] virtual bool loop() const = 0;
    virtual void redraw() = 0;
};

// A PlayerView over plain shared values: the main thread sets the selection when it changes and
// reads the mark when it paints; redraw() calls the handler given (on the display queue).
class SharedPlayerView : public PlayerView
{
public:
    explicit SharedPlayerView(std::function<void()> redrawHandler = {})
        : redrawHandler(std::move(redrawHandler))
    {
    }

    [[nodiscard]] double playMark() const override { return mark.load(); }
    void setPlayMark(double seconds) override { mark = seconds; }
    void setPlaying(bool on) override { playingNow = on; }
    // Any thread.
    [[nodiscard]] bool isPlaying() const { return playingNow; }
    [[nodiscard]] std::optional<Selection> selection() const override
    {
        std::lock_guard lock(mutex);
        if (selected.start < 0.0 || selected.end <= selected.start)
            return std::nullopt;
        return selected;
    }
    [[nodiscard]] bool loop() const override { return looping; }
    // Any thread.
    void setLoop(bool on) { looping = on; }
    // A negative start, or an end not after the start, means no selection. Any thread.
    void setSelection(double start, double end)
    {
        std::lock_guard lock(mutex);
        selected = {start, end};
    }
    void redraw() override
    {
        if (redrawHandler)
            redrawHandler();
    }

private:
    std::atomic<double> mark{0.0};
    std::atomic<bool> playingNow{false};
    std::atomic<bool> looping{false};
    mutable std::mutex mutex;
    Selection selected{-1.0, -1.0}; // guarded by mutex
    std::function<void()> redrawHandler;
};

} // namespace quorval
