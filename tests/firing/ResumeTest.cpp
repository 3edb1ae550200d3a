// Start-up after a restart: a plan whose run state matches its definition goes
// on where it was; any other gets its first computation, as a new plan does.
#include "support/FakeClientLink.h"
#include "support/LogCapture.h"
#include "support/TriggerBuilder.h"

#include "firing/TriggerFireManager.h"
#include "firing/TriggerFireManagerWork.h"
#include "framework/Clock.h"
#include "framework/ConfigReader.h"
#include "store/RunStateStore.h"
#include "store/SchedulerMemoryObjects.h"
#include "triggers/TriggerFingerprint.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <optional>

namespace {
bool IsThePlan(const QString& planUuid) {
    return planUuid == "plan";
}

const char* const kNow = "2026-03-10 10:20:00";
// Hourly from 09:00.
const TriggerDefinition kHourly{2, "2026-03-01 09:00:00", "", 3600};
// Every minute from a start filled in at the plan's first computation.
const TriggerDefinition kEmptyStart{2, "", "", 60};

struct Row {
    const char* lastDue;
    const char* nextStart;
    const char* filledStart = "";
};

struct ResumeCase {
    const char* name;
    TriggerDefinition definition;
    std::optional<Row> row; // none: the plan has no row
    // Spoils what the previous life left: the file or the row.
    std::function<void(const QString& path, RunStateStore::Schedule& kept)> spoil;
    QStringList onceRuns; // the starts run at start-up with policy once
    QStringList skipRuns; // and with skip
    const char* next;     // the plan's next start after the start-up, both policies
};

void Unspoiled(const QString&, RunStateStore::Schedule&) {}

class Resume : public ::testing::TestWithParam<std::tuple<ResumeCase, bool, bool>> {
public:
    void SetUp() override {
        ASSERT_TRUE(registry->Init());
        TriggerFireManager::SetRunState(&store);
    }
    void TearDown() override {
        manager.Stop();
        manager.UnInit();
        TriggerFireManager::SetRunState(nullptr);
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        registry->UnInit();
        store.Close();
        ConfigReader::ResetToDefaults();
        Clock::reset();
    }

    // What the service wrote before it went down.
    void PreviousLife(const ResumeCase& c, const TriggerObject& object) {
        RunStateStore::Schedule kept;
        if (c.row) {
            kept.nextStart = c.row->nextStart;
            kept.nextStartMSecs = At(c.row->nextStart).toMSecsSinceEpoch();
            kept.nextStartOffsetSecs = At(c.row->nextStart).offsetFromUtc();
            kept.firstSeekDone = 1;
            kept.filledStart = c.row->filledStart;
            kept.fingerprint = object.getDefinitionFingerprint();
        }
        c.spoil(path, kept);
        RunStateStore previous;
        ASSERT_TRUE(previous.Open(path, IsThePlan));
        if (c.row) {
            previous.RecordSchedule("plan", 2, kept);
            if (*c.row->lastDue != '\0') {
                previous.RecordRun("plan", 2, c.row->lastDue, 0);
            }
        }
        previous.Close();
        c.spoil(path, kept);
    }

    QStringList Runs() const {
        QStringList starts;
        for (const FakeClientLink::Sent& sent : link.CommandsOfType(600)) {
            starts << sent.nextStartTime;
        }
        return starts;
    }

    SchedulerMemoryObjects* registry = INSTANCE_SCHEDULER_MEMORY_OBJECTS;
    TriggerFireManager manager;
    FakeClientLink link;
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    RunStateStore store;
    LogCapture log;
};

TEST_P(Resume, GoesOnFromTheRunStateOrComputesAfresh) {
    const ResumeCase& c = std::get<0>(GetParam());
    const bool once = std::get<1>(GetParam());
    const bool timer = std::get<2>(GetParam());
    ConfigReader::setDateTimeFireType(timer ? 1 : 0);
    ConfigReader::setMissedRunPolicy(once ? "once" : "skip", 0);
    auto* object = new TriggerObject(MakeTrigger("plan", c.definition));
    object->setDefinitionFingerprint(TriggerFingerprint::Of(object->getObjectTriggerAttribute()));
    PreviousLife(c, *object);
    ASSERT_TRUE(registry->InsertTriggerObject("plan", object));
    Clock::freezeAt(At(kNow));

    ASSERT_TRUE(store.Open(path, IsThePlan));
    store.Resume(*registry->GetTriggerObjectHash());
    ASSERT_TRUE(manager.Init());
    ASSERT_TRUE(manager.Start());
    TriggerFireManagerWork::Instance().CatchUpDowntime(store.TakeStoredRuns());
    // Polling mode's first poll is queued by the start, without waiting for a tick.
    for (int i = 0; i < 3; ++i) {
        QCoreApplication::processEvents();
    }

    EXPECT_EQ(Runs(), once ? c.onceRuns : c.skipRuns);
    EXPECT_EQ(object->getNextStartTime(), c.next);
    if (c.row && *c.row->filledStart != '\0') {
        EXPECT_EQ(object->getObjectTriggerAttribute().getStartTime(), c.row->filledStart);
    }
}

// A first computation of the hourly plan at 10:20:00 runs it at once, at
// 10:20:01; going on, it waits for 11:00:00.
INSTANTIATE_TEST_SUITE_P(
    Cases, Resume,
    ::testing::Combine(
        ::testing::Values(
            ResumeCase{"unchangedStartAhead",
                       kHourly,
                       Row{"2026-03-10 10:00:00", "2026-03-10 11:00:00"},
                       Unspoiled,
                       {},
                       {},
                       "2026-03-10 11:00:00"},
            ResumeCase{"unchangedStartPassedWhileDown",
                       kHourly,
                       Row{"2026-03-10 09:00:00", "2026-03-10 10:00:00"},
                       Unspoiled,
                       {"2026-03-10 10:00:00"},
                       {},
                       "2026-03-10 11:00:00"},
            ResumeCase{"unchangedNeverRanStartPassed",
                       kHourly,
                       Row{"", "2026-03-10 10:00:00"},
                       Unspoiled,
                       {"2026-03-10 10:00:00"},
                       {},
                       "2026-03-10 11:00:00"},
            ResumeCase{"unchangedStartHandedBeforeTheKill",
                       kHourly,
                       Row{"2026-03-10 10:00:00", "2026-03-10 10:00:00"},
                       Unspoiled,
                       {},
                       {},
                       "2026-03-10 11:00:00"},
            ResumeCase{"filledStartKeepsItsSeconds",
                       kEmptyStart,
                       Row{"2026-03-10 10:17:30", "2026-03-10 10:18:30", "2026-03-10 08:16:30"},
                       Unspoiled,
                       {"2026-03-10 10:18:30"},
                       {},
                       "2026-03-10 10:20:30"},
            ResumeCase{"modified",
                       kHourly,
                       Row{"", "2026-03-10 11:00:00"},
                       [](const QString&, RunStateStore::Schedule& kept) { kept.fingerprint ^= 1; },
                       {},
                       {},
                       "2026-03-10 10:20:01"},
            ResumeCase{"new", kHourly, std::nullopt, Unspoiled, {}, {}, "2026-03-10 10:20:01"},
            ResumeCase{"missingState",
                       kHourly,
                       Row{"", "2026-03-10 11:00:00"},
                       [](const QString& path, RunStateStore::Schedule&) { QFile::remove(path); },
                       {},
                       {},
                       "2026-03-10 10:20:01"},
            ResumeCase{"damagedState",
                       kHourly,
                       Row{"", "2026-03-10 11:00:00"},
                       [](const QString& path, RunStateStore::Schedule&) {
                           QFile file(path);
                           if (file.exists() && file.open(QIODevice::ReadWrite)) {
                               file.write(QByteArray(4096, 'x'));
                           }
                       },
                       {},
                       {},
                       "2026-03-10 10:20:01"},
            ResumeCase{"damagedRow",
                       kHourly,
                       Row{"", "2026-03-10 11:00:00"},
                       [](const QString&, RunStateStore::Schedule& kept) { kept.nextStartMSecs = 0; },
                       {},
                       {},
                       "2026-03-10 10:20:01"}),
        ::testing::Bool(), ::testing::Bool()),
    [](const ::testing::TestParamInfo<std::tuple<ResumeCase, bool, bool>>& info) {
        return std::string(std::get<0>(info.param).name) + (std::get<1>(info.param) ? "_once" : "_skip") +
               (std::get<2>(info.param) ? "_timer" : "_poll");
    });
} // namespace
