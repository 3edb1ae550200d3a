#include "HeapTrimmer.h"

#include <malloc.h>

namespace {
// glibc's own starting values.
constexpr int kMmapThresholdBytes = 128 * 1024;
constexpr int kTrimThresholdBytes = 128 * 1024;
} // namespace

HeapTrimmer::HeapTrimmer(Trim trim, Elapsed elapsed, QObject* parent)
    : QObject(parent), m_trim(std::move(trim)), m_elapsed(std::move(elapsed)) {
    m_quiet.setSingleShot(true);
    connect(&m_quiet, &QTimer::timeout, this, &HeapTrimmer::onQuiet);
    m_clock.start();
    if (!m_trim) {
        m_trim = [] { malloc_trim(0); };
    }
    if (!m_elapsed) {
        m_elapsed = [this] { return m_clock.elapsed(); };
    }
}

void HeapTrimmer::Note(int items) {
    const bool reached = m_items < kBurstItems && m_items + items >= kBurstItems;
    m_items += items;
    m_lastItemMSecs = m_elapsed();
    if (reached) {
        m_quiet.start(kQuietMSecs);
    }
}

void HeapTrimmer::onQuiet() {
    if (m_items < kBurstItems) {
        return;
    }
    const qint64 quietFor = m_elapsed() - m_lastItemMSecs;
    if (quietFor < kQuietMSecs) {
        m_quiet.start(static_cast<int>(kQuietMSecs - quietFor));
        return;
    }
    m_items = 0;
    m_trim();
}

void HeapTrimmer::FixThresholds() {
    mallopt(M_MMAP_THRESHOLD, kMmapThresholdBytes);
    mallopt(M_TRIM_THRESHOLD, kTrimThresholdBytes);
}
