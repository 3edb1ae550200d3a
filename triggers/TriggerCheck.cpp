#include "TriggerCheck.h"

#include "FireState.h"
#include "LocalTime.h"

#include "framework/CommandBuilder.h"
#include "framework/CommonTools.h"
#include "framework/LogText.h"
#include "framework/RequestCommand.h"
#include "framework/RequestNewOperationData.h"
#include "framework/SchedulerPlanData.h"
#include "framework/WireFormat.h"

namespace {
const QString kNoEnd = QStringLiteral("0000-00-00 00:00:00");
const QString kUndecodable = QStringLiteral("its plan data do not decode");

QString Quoted(const QString& text) {
    return QString("\"%1\"").arg(LogText::Outside(text));
}
} // namespace

QString TriggerCheck::PlanUuidFault(const QString& planUuid) {
    if (planUuid.isEmpty()) {
        return "the plan UUID is empty";
    }
    const int bytes = planUuid.toUtf8().size();
    if (bytes > kMaxPlanUuidBytes) {
        return QString("the plan UUID is %1 bytes long, more than %2").arg(bytes).arg(kMaxPlanUuidBytes);
    }
    return QString();
}

QString TriggerCheck::CommandFault(const CommCommand& request) {
    const QString planUuid = request.getPlanUuid();
    const auto* withPayload = dynamic_cast<const RequestCommand*>(&request);
    const quint64 type = request.getCommandType();
    if (withPayload == nullptr || (type != CommandTypes::kNewPlan && type != CommandTypes::kModifyPlan)) {
        return PlanUuidFault(planUuid);
    }
    const QByteArray& payload = withPayload->getRfrnRequestData();
    if (type == CommandTypes::kNewPlan) {
        RequestNewOperationData data;
        return CommandBuilder::BytearrayToData(payload, &data) ? Fault(planUuid, data.getTriggerAttribute())
                                                               : kUndecodable;
    }
    SchedulerPlanData data;
    return CommandBuilder::BytearrayToData(payload, &data)
               ? Fault(planUuid, data.getRfrnSchedulerPlan().getObjectTriggerAttribute())
               : kUndecodable;
}

QString TriggerCheck::Fault(const QString& planUuid, const TriggerAttribute& attribute) {
    const QString uuidFault = PlanUuidFault(planUuid);
    if (!uuidFault.isEmpty()) {
        return uuidFault;
    }
    const quint64 type = attribute.getTriggerType();
    if (TriggerTypes::IsEvent(type)) {
        return QString();
    }
    if (!TriggerTypes::IsDateTime(type)) {
        return QString("trigger type %1 has no fire (1-4 calendar, 256-261 events)").arg(type);
    }
    return CalendarFault(attribute);
}

QString TriggerCheck::CalendarFault(const TriggerAttribute& attribute) {
    QString fault = TimeFault("start time", attribute.getStartTime(), false);
    if (fault.isEmpty()) {
        fault = TimeFault("end time", attribute.getEndTime(), true);
    }
    if (fault.isEmpty()) {
        fault = SpanFault("interval", attribute.getInterval());
    }
    if (fault.isEmpty()) {
        fault = SpanFault("duration", attribute.getDuration());
    }
    const quint64 type = attribute.getTriggerType();
    if (fault.isEmpty() && type == TriggerTypes::kWeekly) {
        fault = ListFault("week days", attribute.getWeekDays(), 7);
    }
    if (fault.isEmpty() && type == TriggerTypes::kMonthly) {
        fault = ListFault("months", attribute.getWhichMoths(), 12);
    }
    if (fault.isEmpty() && type == TriggerTypes::kMonthly) {
        fault = ListFault("month days", attribute.getMonthDays(), 31);
    }
    return fault;
}

// An empty start time means the current minute and an empty end time no end.
QString TriggerCheck::TimeFault(const char* field, const QString& text, bool mayBeNoEnd) {
    if (text.isEmpty() || (mayBeNoEnd && text == kNoEnd) || LocalTime::IsWellFormed(text)) {
        return QString();
    }
    return QString("%1 %2 is not a valid \"yyyy-MM-dd hh:mm:ss\" time").arg(field, Quoted(text));
}

QString TriggerCheck::SpanFault(const char* field, quint64 secs) {
    if (secs <= kMaxSpanSecs) {
        return QString();
    }
    return QString("%1 %2 s is beyond a century").arg(field).arg(secs);
}

// Values are unsigned decimal numbers, blanks around them allowed.
QString TriggerCheck::ListFault(const char* field, const QString& text, quint64 highest) {
    QString fault;
    CommonTools::ForEachListToken(text, [&](const QChar* begin, const QChar* end) {
        quint64 value = 0;
        if (!fault.isNull() || begin == end ||
            (CommonTools::ReadValue(begin, end, value) && value >= 1 && value <= highest)) {
            return;
        }
        fault = QString("%1 %2 hold %3, not a value from 1 to %4")
                    .arg(field, Quoted(text), Quoted(QString(begin, static_cast<int>(end - begin))))
                    .arg(highest);
    });
    return fault;
}
