#include "RunStateBatchHold.h"

#include "RunStateRecorder.h"

RunStateBatchHold::RunStateBatchHold(RunStateRecorder* recorder) : m_recorder(recorder) {
    if (m_recorder != nullptr) {
        m_recorder->HoldBatch();
    }
}

RunStateBatchHold::~RunStateBatchHold() {
    if (m_recorder != nullptr) {
        m_recorder->ReleaseBatch();
    }
}
