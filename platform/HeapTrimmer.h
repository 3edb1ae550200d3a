#pragma once

#include <QElapsedTimer>
#include <QTimer>

#include <functional>

// Gives the heap's free pages back to the system once a burst of work is over.
// A start-up with a million plans builds and frees a command, a frame, a reply
// and their texts per plan, on several threads; glibc keeps the pages those
// lived in resident for good unless asked, hundreds of bytes per plan for the
// life of the service.
//
// Used on the thread that made it, whose event loop runs its timer.
class HeapTrimmer : public QObject {
    Q_OBJECT
public:
    // A burst is this many items of work; fewer leave too little to give back
    // to be worth a walk over the heap.
    static constexpr int kBurstItems = 1000;
    // The burst is over when no item came for this long.
    static constexpr int kQuietMSecs = 1000;

    using Trim = std::function<void()>;
    // Milliseconds on a clock that never steps.
    using Elapsed = std::function<qint64()>;

    // Gives the pages back through `trim` and measures quiet on `elapsed`;
    // by default malloc_trim and a monotonic clock of its own.
    explicit HeapTrimmer(Trim trim = {}, Elapsed elapsed = {}, QObject* parent = nullptr);

    void Note(int items = 1);

    // Pins glibc's mmap and trim thresholds, once at process start. Left to
    // themselves they rise with every large block freed (up to 32 and 64 MiB),
    // after which a thread's arena keeps its free top for good, and no trim
    // gives it back: a timer-mode start-up left 200 bytes a plan that way.
    static void FixThresholds();

public Q_SLOTS:
    // Trims when the burst has been quiet long enough, else waits on.
    void onQuiet();

private:
    // Restarting a timer per item would cost more than the item; the quiet
    // check looks at the time of the last item instead.
    QTimer m_quiet;
    QElapsedTimer m_clock;
    Trim m_trim;
    Elapsed m_elapsed;
    qint64 m_lastItemMSecs = 0;
    int m_items = 0;
};
