#pragma once

class RunStateRecorder;

// While any hold lasts, the run state's batch grows instead of being written;
// when the last one ends it is written at once if its time has come. A poll
// pass holds it, and so does the start of all fires, so that their changes go
// in one transaction: a start-up of a million plans written every 100 ms took
// hundreds of transactions, each rewriting pages all over the file.
//
// Holds nest; a hold on no recorder does nothing.
class RunStateBatchHold {
public:
    explicit RunStateBatchHold(RunStateRecorder* recorder);
    ~RunStateBatchHold();
    RunStateBatchHold(const RunStateBatchHold&) = delete;
    RunStateBatchHold& operator=(const RunStateBatchHold&) = delete;

private:
    RunStateRecorder* m_recorder;
};
