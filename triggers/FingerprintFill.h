#pragma once

#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

class TriggerObject;

// Gives loaded trigger objects the digests of their definitions on a thread of
// its own, while the caller goes on with what does not read them: a start-up
// loads a million plans, and digesting them takes about half a second.
//
// Until Wait() has returned, nothing may read the objects' digests, change
// their definitions or delete them. Waiting takes over a share of the work
// that is left; the destructor waits.
class FingerprintFill {
public:
    FingerprintFill() = default;
    ~FingerprintFill();
    FingerprintFill(const FingerprintFill&) = delete;
    FingerprintFill& operator=(const FingerprintFill&) = delete;

    // Waits for a fill still under way, then starts one.
    void Start(std::vector<TriggerObject*> objects);
    void Wait();

private:
    // Objects a thread takes at a time.
    static constexpr size_t kChunk = 1024;

    void FillChunks();

    std::vector<TriggerObject*> m_objects;
    std::atomic<size_t> m_next{0};
    std::thread m_thread;
};
