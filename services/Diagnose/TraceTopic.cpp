#include "Diagnose/TraceTopic.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include "Diagnose/TraceConfiguration.h"

namespace Diagnose {

namespace {

std::atomic<TraceLevel> levelInForce{TraceLevel::Error};

struct KnownTopics {
    std::mutex mutex;
    std::vector<const TraceTopic*> topics;
};

// Never destroyed: topics are statics of other files and go at moments of their own.
KnownTopics& knownTopics()
{
    static KnownTopics* const instance = new KnownTopics;
    return *instance;
}

}  // namespace

void DiagTopic::init(const char* topicName, const char* topicDescription)
{
    ownName = topicName;
    ownDescription = topicDescription;
}

void TraceTopic::initStat()
{
    KnownTopics& all = knownTopics();
    const std::scoped_lock lock(all.mutex);
    if (!known.exchange(true))
        all.topics.push_back(this);
}

void TraceTopic::destroy()
{
    KnownTopics& all = knownTopics();
    const std::scoped_lock lock(all.mutex);
    known = false;
    std::erase(all.topics, this);
}

bool TraceTopic::isActive(TraceLevel level) const
{
    return level != TraceLevel::Off && known.load(std::memory_order_relaxed) &&
           level <= levelInForce.load(std::memory_order_relaxed);
}

void TraceTopic::trace(TraceLevel level, std::string_view text) const
{
    if (isActive(level))
        TraceConfiguration::write(name(), level, text);
}

void TraceTopic::setGlobalTraceLevel(TraceLevel level)
{
    levelInForce = level;
}

TraceLevel TraceTopic::globalTraceLevel()
{
    return levelInForce;
}

const TraceTopic* TraceTopic::find(std::string_view name)
{
    KnownTopics& all = knownTopics();
    const std::scoped_lock lock(all.mutex);
    const auto found = std::find_if(all.topics.begin(), all.topics.end(),
                                    [&](const TraceTopic* topic) { return topic->name() == name; });
    return found == all.topics.end() ? nullptr : *found;
}

const TraceTopic& diagnoseTopic()
{
    static TraceTopic* const topic = [] {
        auto* made = new TraceTopic;
        made->init("diagnose", "diagnostics");
        made->initStat();
        return made;
    }();
    return *topic;
}

}  // namespace Diagnose
