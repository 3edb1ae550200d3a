#include "FingerprintFill.h"

#include "TriggerFingerprint.h"
#include "TriggerObject.h"

#include <algorithm>
#include <utility>

FingerprintFill::~FingerprintFill() {
    Wait();
}

void FingerprintFill::Start(std::vector<TriggerObject*> objects) {
    Wait();
    m_objects = std::move(objects);
    m_next.store(0);
    if (m_objects.size() <= kChunk) {
        FillChunks();
        return;
    }
    m_thread = std::thread([this] { FillChunks(); });
}

void FingerprintFill::Wait() {
    FillChunks();
    if (m_thread.joinable()) {
        m_thread.join();
    }
    m_objects.clear();
    m_objects.shrink_to_fit();
}

void FingerprintFill::FillChunks() {
    const size_t size = m_objects.size();
    for (size_t from = m_next.fetch_add(kChunk); from < size; from = m_next.fetch_add(kChunk)) {
        const size_t to = std::min(size, from + kChunk);
        for (size_t i = from; i < to; ++i) {
            TriggerObject* object = m_objects[i];
            // Read-only: the writing accessor marks the parsed rule stale.
            object->setDefinitionFingerprint(
                TriggerFingerprint::Of(std::as_const(*object).getObjectTriggerAttribute()));
        }
    }
}
