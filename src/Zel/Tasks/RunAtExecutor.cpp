#include <Zel/Tasks/RunAtExecutor.h>
#include <ctime>

namespace Zel::Tasks {

namespace {

constexpr int secondsPerDay = 86400;

bool validTimeOfDay(const Time& time) {
    return !time.isNull() && time.hour() < 24 && time.minute() < 60 && time.second() < 60;
}

int secondsOfDay(int hour, int minute, int second) {
    return hour * 3600 + minute * 60 + second;
}

DateTime localNow() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
#ifdef _WIN32
    ::localtime_s(&local, &now);
#else
    ::localtime_r(&now, &local);
#endif
    DateTime result;
    result.setDate(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
    // A leap second reads as the last second of the minute.
    result.setTime(local.tm_hour, local.tm_min, local.tm_sec > 59 ? 59 : local.tm_sec);
    return result;
}

} // namespace

RunAtExecutor::RunAtExecutor(IManager& manager, const Time& timeOfDay)
    : AbstractExecutor(manager), m_timeOfDay(validTimeOfDay(timeOfDay) ? timeOfDay : Time(0, 0, 0)) {}

RunAtExecutor::~RunAtExecutor() {
    shutdown();
}

std::chrono::milliseconds RunAtExecutor::calcDelayForNextSchedule() const {
    return calcDelayForNextSchedule(m_timeOfDay, localNow());
}

std::chrono::milliseconds RunAtExecutor::calcDelayForNextSchedule(const Time& timeOfDay,
                                                                  const DateTime& now) {
    const Time target = validTimeOfDay(timeOfDay) ? timeOfDay : Time(0, 0, 0);
    const int nowSeconds = secondsOfDay(now.hour(), now.minute(), now.second());
    int targetSeconds = secondsOfDay(target.hour(), target.minute(), target.second());
    // Exactly at the time of day counts as past it: the next run is tomorrow's, not an immediate one.
    if (targetSeconds <= nowSeconds) targetSeconds += secondsPerDay;
    return std::chrono::seconds(targetSeconds - nowSeconds);
}

void RunAtExecutor::schedule(std::chrono::milliseconds runDelay) {
    addRun(runDelay, Repeat::Yes);
}

void RunAtExecutor::started() {
    schedule(calcDelayForNextSchedule());
}

std::chrono::milliseconds RunAtExecutor::nextRunDelay() {
    return calcDelayForNextSchedule();
}

} // namespace Zel::Tasks
