#include "CrashDumpExceptionFilter.h"
#include "SchedulerService.h"

#include "framework/Clock.h"

#include <QTextCodec>

int main(int argc, char** argv) {
    Clock::PinLocalTimeZone();
    CrashDumpExceptionFilter::Install();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    SchedulerService service(argc, argv);
    return service.exec();
}
