#include "Diagnose/TraceTopic.h"

#include <gtest/gtest.h>

namespace {

using Diagnose::TraceLevel;
using Diagnose::TraceTopic;

class TraceTopicTest : public testing::Test {
protected:
    void SetUp() override { topic.init("topicOfTest", "what it is about"); }
    void TearDown() override
    {
        topic.destroy();
        TraceTopic::setGlobalTraceLevel(before);
    }

    TraceLevel before = TraceTopic::globalTraceLevel();
    TraceTopic topic;
};

TEST_F(TraceTopicTest, HasTheNameAndDescriptionOfInit)
{
    EXPECT_STREQ(topic.name(), "topicOfTest");
    EXPECT_STREQ(topic.description(), "what it is about");
}

TEST_F(TraceTopicTest, HasNoNameBeforeInit)
{
    EXPECT_STREQ(TraceTopic().name(), "");
    EXPECT_STREQ(TraceTopic().description(), "");
}

TEST_F(TraceTopicTest, LevelIsErrorAtTheStart)
{
    EXPECT_EQ(TraceTopic::globalTraceLevel(), TraceLevel::Error);
}

TEST_F(TraceTopicTest, IsSilentBeforeInitStat)
{
    EXPECT_FALSE(topic.isActive(TraceLevel::Fatal));
    EXPECT_EQ(TraceTopic::find("topicOfTest"), nullptr);
}

TEST_F(TraceTopicTest, IsFoundByItsNameOnceKnown)
{
    topic.initStat();

    EXPECT_EQ(TraceTopic::find("topicOfTest"), &topic);
    EXPECT_EQ(TraceTopic::find("topicOfTes"), nullptr);
    EXPECT_EQ(TraceTopic::find(""), nullptr);
}

TEST_F(TraceTopicTest, FollowsTheGlobalLevel)
{
    topic.initStat();

    TraceTopic::setGlobalTraceLevel(TraceLevel::Warning);
    EXPECT_TRUE(topic.isActive(TraceLevel::Fatal));
    EXPECT_TRUE(topic.isActive(TraceLevel::Error));
    EXPECT_TRUE(topic.isActive(TraceLevel::Warning));
    EXPECT_FALSE(topic.isActive(TraceLevel::Info));
    EXPECT_FALSE(topic.isActive(TraceLevel::Debug));

    TraceTopic::setGlobalTraceLevel(TraceLevel::Off);
    EXPECT_FALSE(topic.isActive(TraceLevel::Fatal));
}

TEST_F(TraceTopicTest, LineOfLevelOffIsNeverActive)
{
    topic.initStat();
    TraceTopic::setGlobalTraceLevel(TraceLevel::Debug);

    EXPECT_FALSE(topic.isActive(TraceLevel::Off));
}

TEST_F(TraceTopicTest, IsSilentAndForgottenAfterDestroy)
{
    topic.initStat();

    topic.destroy();

    EXPECT_FALSE(topic.isActive(TraceLevel::Fatal));
    EXPECT_EQ(TraceTopic::find("topicOfTest"), nullptr);
}

TEST_F(TraceTopicTest, SecondInitStatIsForgottenByOneDestroy)
{
    topic.initStat();
    topic.initStat();

    topic.destroy();

    EXPECT_EQ(TraceTopic::find("topicOfTest"), nullptr);
}

TEST_F(TraceTopicTest, MayBecomeKnownAgain)
{
    topic.initStat();
    topic.destroy();

    topic.initStat();

    EXPECT_TRUE(topic.isActive(TraceLevel::Error));
    EXPECT_EQ(TraceTopic::find("topicOfTest"), &topic);
}

TEST_F(TraceTopicTest, TopicOfTheDiagnosticsIsKnown)
{
    const TraceTopic& diagnose = Diagnose::diagnoseTopic();

    EXPECT_EQ(TraceTopic::find("diagnose"), &diagnose);
    EXPECT_EQ(&Diagnose::diagnoseTopic(), &diagnose);
}

}  // namespace
