#pragma once

#include "support/ClockShift.h"
#include "support/FakeClientLink.h"
#include "support/LogCapture.h"
#include "support/TriggerBuilder.h"

#include "FakeRunStateRecorder.h"
#include "firing/TriggerFireManager.h"
#include "firing/TriggerFireManagerWork.h"
#include "framework/ConfigReader.h"
#include "store/SchedulerMemoryObjects.h"
#include "timing/DeadlineQueue.h"
#include "triggers/AtTimeFire.h"
#include "triggers/EventerFire.h"
#include "triggers/TimerFire.h"

#include <QCoreApplication>
#include <QMap>
#include <QSet>
#include <QTest>
#include <QTimer>

#include <log4cpp/Priority.hh>

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>

// The plan's listed fire of the timer mode; null if it has none.
inline TimerFire* TimerFireOf(const QString& planUuid) {
    return TriggerFire::TimerOf(TriggerFireManagerWork::Instance().DateTimeFireOf(planUuid));
}

// Loading, polling, timer-mode and event firing over the real registry, with a
// capturing client link and the process clock shifted instead of waited for.
class Firing : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(registry->Init());
        TriggerFireManager::SetRunState(&runState);
    }
    void TearDown() override {
        work().setPollSliceNSecs(PollPass::kSliceNSecs);
        manager.Stop();
        manager.UnInit();
        manager.UnInit();
        TriggerFireManager::SetRunState(nullptr);
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        registry->UnInit();
        ConfigReader::ResetToDefaults();
        Clock::reset();
    }

    TriggerObject* Register(const QString& planUuid, const TriggerDefinition& definition) {
        auto* object = new TriggerObject(MakeTrigger(planUuid, definition));
        EXPECT_TRUE(registry->InsertTriggerObject(planUuid, object));
        return object;
    }

    // A trigger whose first start has been computed already and is due at `next`.
    TriggerObject* RegisterDue(const QString& planUuid, const TriggerDefinition& definition,
                               const char* next) {
        TriggerObject* object = Register(planUuid, definition);
        object->setFirstSeekDone(1);
        object->setNextStartTime(next);
        return object;
    }

    void Poll(const char* now) {
        Clock::freezeAt(At(now));
        QMetaObject::invokeMethod(&work(), "onAtTimerOut", Qt::DirectConnection);
    }

    // Plans p0... all due in the polled minute, and a pass that stops after its
    // first slice.
    void StartSlicedPass(int plans) {
        for (int i = 0; i < plans; ++i) {
            RegisterDue(QString("p%1").arg(i), {2, "2026-03-01 08:30:00"}, "2026-03-10 08:30:00");
        }
        ASSERT_TRUE(manager.Init());
        ASSERT_TRUE(manager.Start());
        work().setPollSliceNSecs(0);
        Poll("2026-03-10 08:30:00.200");
    }

    // Starts the manager in timer mode over the plans registered so far.
    bool StartedInTimerMode() {
        ConfigReader::setDateTimeFireType(1);
        return manager.Init() && manager.Start();
    }

    static TriggerFireManagerWork& work() { return TriggerFireManagerWork::Instance(); }

    // Runs the event loop until every slice posted so far has had its turn: a
    // timer posted now comes due after them.
    static void LetPostedWorkRun() {
        bool reached = false;
        QTimer::singleShot(2, Qt::PreciseTimer, [&reached] { reached = true; });
        ASSERT_TRUE(QTest::qWaitFor([&reached] { return reached; }, 10000));
    }

    SchedulerMemoryObjects* registry = INSTANCE_SCHEDULER_MEMORY_OBJECTS;
    TriggerFireManager manager;
    FakeRunStateRecorder runState;
    std::optional<FakeClientLink> link{std::in_place};
    LogCapture log;
};
