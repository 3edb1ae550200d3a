// libFuzzer target: the reader of stored trigger rows. The input is cut into
// the columns of one row, each with the storage class SQLite could hand back
// for it (NULL, integer, real, text, blob), and the row goes through what the
// service does with it at start-up: read, checked, and named in a log line.
#include "framework/LogText.h"
#include "framework/TriggerAttribute.h"
#include "framework/TriggerRow.h"
#include "triggers/TriggerCheck.h"

#include <QVariant>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {
class Cursor {
public:
    Cursor(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

    uint8_t Byte() { return m_at < m_size ? m_data[m_at++] : 0; }
    QByteArray Bytes(size_t count) {
        count = std::min(count, m_size - m_at);
        const QByteArray bytes(reinterpret_cast<const char*>(m_data + m_at), static_cast<int>(count));
        m_at += count;
        return bytes;
    }
    qint64 Integer() {
        qint64 value = 0;
        const QByteArray bytes = Bytes(sizeof(value));
        std::memcpy(&value, bytes.constData(), static_cast<size_t>(bytes.size()));
        return value;
    }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_at = 0;
};

QVariant Column(Cursor& cursor) {
    switch (cursor.Byte() % 5) {
    case 0:
        return QVariant();
    case 1:
        return QVariant(static_cast<qlonglong>(cursor.Integer()));
    case 2: {
        const qint64 bits = cursor.Integer();
        double value = 0;
        std::memcpy(&value, &bits, sizeof(value));
        return QVariant(value);
    }
    case 3:
        return QVariant(QString::fromUtf8(cursor.Bytes(cursor.Byte())));
    default:
        return QVariant(cursor.Bytes(cursor.Byte()));
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Cursor cursor(data, size);
    TriggerRow::Values row;
    const int columns = TriggerRow::kColumns + (cursor.Byte() == 0xff ? 1 : 0);
    for (int i = 0; i < columns; ++i) {
        row.append(Column(cursor));
    }
    QString planUuid;
    TriggerAttribute attribute;
    QString fault = TriggerRow::Read(row, planUuid, attribute);
    if (fault.isEmpty()) {
        fault = TriggerCheck::Fault(planUuid, attribute);
    }
    LogText::OneLine(QString("Skipped the stored plan [%1]: %2.").arg(LogText::Outside(planUuid), fault));
    return 0;
}
