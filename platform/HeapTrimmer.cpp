#include "HeapTrimmer.h"

#include <malloc.h>

HeapTrimmer::HeapTrimmer() {
    m_quiet.setSingleShot(true);
    connect(&m_quiet, &QTimer::timeout, this, &HeapTrimmer::onQuiet);
    m_clock.start();
}

HeapTrimmer& HeapTrimmer::Instance() {
    static HeapTrimmer trimmer;
    return trimmer;
}

void HeapTrimmer::Note(int items) {
    Instance().Add(items);
}

int HeapTrimmer::Trims() {
    return Instance().m_trims;
}

// Restarting a timer per item would cost more than the item; the quiet check
// looks at the time of the last item instead.
void HeapTrimmer::Add(int items) {
    const bool reached = m_items < kBurstItems && m_items + items >= kBurstItems;
    m_items += items;
    m_lastItemMSecs = m_clock.elapsed();
    if (reached) {
        m_quiet.start(kQuietMSecs);
    }
}

void HeapTrimmer::onQuiet() {
    const qint64 quietFor = m_clock.elapsed() - m_lastItemMSecs;
    if (quietFor < kQuietMSecs) {
        m_quiet.start(static_cast<int>(kQuietMSecs - quietFor));
        return;
    }
    m_items = 0;
    ++m_trims;
    malloc_trim(0);
}
