#include "CrashDumpExceptionFilter.h"
#include "SchedulerService.h"

#include "framework/Clock.h"

#include <QTextCodec>

int main(int argc, char** argv) {
    CrashDumpExceptionFilter::Install();
    Clock::PinLocalTimeZone();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    SchedulerService service(argc, argv);
    return service.exec();
}
