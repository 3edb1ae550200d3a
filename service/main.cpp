#include "CrashDumpExceptionFilter.h"
#include "SchedulerService.h"

#include "framework/Clock.h"
#include "platform/HeapTrimmer.h"

#include <QTextCodec>

int main(int argc, char** argv) {
    HeapTrimmer::FixThresholds();
    Clock::PinLocalTimeZone();
    CrashDumpExceptionFilter::Install();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    SchedulerService service(argc, argv);
    return service.exec();
}
