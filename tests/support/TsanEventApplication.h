#pragma once

#include <QCoreApplication>

// The test application of the thread-sanitizer build: every event delivered
// acquires what the posting side released (see TsanQtAnnotations.cpp).
class TsanEventApplication : public QCoreApplication {
public:
    using QCoreApplication::QCoreApplication;
    bool notify(QObject* receiver, QEvent* event) override;
};
