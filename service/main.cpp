#include "CrashDumpExceptionFilter.h"
#include "SchedulerService.h"

#include <QTextCodec>

int main(int argc, char** argv) {
    CrashDumpExceptionFilter::Install();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    SchedulerService service(argc, argv);
    return service.exec();
}
