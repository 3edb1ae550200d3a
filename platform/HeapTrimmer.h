#pragma once

#include <QElapsedTimer>
#include <QTimer>

// Gives the heap's free pages back to the system once a burst of work is over.
// A start-up with a million plans builds and frees a command, a frame, a reply
// and their texts per plan, on several threads; glibc keeps the pages those
// lived in resident for good unless asked, hundreds of bytes per plan for the
// life of the service.
//
// Used on the application thread only: its timer belongs to the thread of the
// first Note.
class HeapTrimmer : public QObject {
    Q_OBJECT
public:
    // A burst is this many items of work; fewer leave too little to give back
    // to be worth a walk over the heap.
    static constexpr int kBurstItems = 1000;
    // The burst is over when no item came for this long.
    static constexpr int kQuietMSecs = 1000;

    static void Note(int items = 1);
    // How many times the heap was trimmed, for tests.
    static int Trims();

private:
    HeapTrimmer();
    static HeapTrimmer& Instance();
    void Add(int items);
    void onQuiet();

    QTimer m_quiet;
    QElapsedTimer m_clock;
    qint64 m_lastItemMSecs = 0;
    int m_items = 0;
    int m_trims = 0;
};
