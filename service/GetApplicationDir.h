#pragma once

#include <QString>

// The executable's absolute directory with "/" separators and one "/"
// appended. Needs the application object.
QString GetApplicationDir();
