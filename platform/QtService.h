#pragma once

#include "QtServiceBase.h"

#include <memory>

// Binds the service framework to an application class.
template <typename Application> class QtService : public QtServiceBase {
public:
    QtService(int argc, char** argv, const QString& name) : QtServiceBase(argc, argv, name) {}
    ~QtService() override = default;

protected:
    Application* application() const { return m_application.get(); }

    void createApplication(int& argc, char** argv) override {
        m_application.reset(new Application(argc, argv));
    }
    int executeApplication() override { return Application::exec(); }

private:
    std::unique_ptr<Application> m_application;
};
