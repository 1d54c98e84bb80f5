#include <GmpIgmpQuerierSm/QueryOutput.h>

#include <memory>

#include "SendQuery.h"

#include "Once.h"
#include "TestBench.h"

namespace Gmp::Igmp::testing {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class QueryOutputTest : public TestBench {
 protected:
  Ptr<QuerierSm> make(QueryOutput& output) {
    return querierSmFactory(config_, status_, own_, 1500, 0, wheel_, wheel_, wheel_, false,
                            &output);
  }
  // Writes "src -> dst, bytes, queries counted before".
  QueryOutput::Handler writer() {
    return [this](const PublishedQuery& query) {
      taken_.push_back(query.src.stringValue() + " -> " + query.dstGroup.stringValue() + ", " +
                       std::to_string(query.message->offsetBytes()) + " bytes, after " +
                       std::to_string(status_->v3QueriesSent()));
    };
  }
  void statusIsQuerier() { status_->stateIs(QuerierStatus::querierStateQuerier); }

  std::vector<std::string> taken_;
};

TEST_F(QueryOutputTest, handsOutWhatTheConstructorPublishes) {
  statusIsQuerier();
  QueryOutput output(writer());
  const Ptr<QuerierSm> querier = make(output);
  EXPECT_THAT(taken_, ElementsAre("10.0.0.5 -> 0.0.0.0, 12 bytes, after 0"));
  EXPECT_EQ(status_->v3QueriesSent(), 1u);
  EXPECT_EQ(querier->writableCount(), 1u);
}

TEST_F(QueryOutputTest, handsOutEachQueryOnceBeforeItIsCounted) {
  QueryOutput output(writer());
  const Ptr<QuerierSm> querier = make(output);
  EXPECT_THAT(taken_, IsEmpty());
  sendGeneralQuery(querier.get());
  getOrCreateGroupSm(querier, group_)->rexmitGroupQueryIs(1);
  querier->ipAddrIs(lower_);
  sendGroupSpecificQuery(querier.get(), group_);
  std::vector<IpAddr> sources{source_};
  sendGroupAndSourceSpecificQueryHelper(querier.get(), group_, sources, false);
  EXPECT_THAT(taken_, ElementsAre("10.0.0.5 -> 0.0.0.0, 12 bytes, after 0",
                                  "10.0.0.2 -> 239.1.1.1, 12 bytes, after 1",
                                  "10.0.0.2 -> 239.1.1.1, 16 bytes, after 2"));
}

TEST_F(QueryOutputTest, aCountThatIsWrittenWithoutAQueryHandsOutNothing) {
  QueryOutput output(writer());
  const Ptr<QuerierSm> querier = make(output);
  querier->writableCountIs(7);
  EXPECT_THAT(taken_, IsEmpty());
}

TEST_F(QueryOutputTest, releasedItHandsOutNothingAndLetsTheQuerierGo) {
  QueryOutput output(writer());
  Ptr<QuerierSm> querier = make(output);
  EXPECT_EQ(querier->refs(), 2u);
  output.release();
  EXPECT_EQ(querier->refs(), 1u);
  sendGeneralQuery(querier.get());
  EXPECT_THAT(taken_, IsEmpty());
  querier = nullptr;
  EXPECT_EQ(wheel_->armed(), 0u);
}

TEST_F(QueryOutputTest, servesTheNextQuerierAfterTheFirst) {
  QueryOutput output(writer());
  const Ptr<QuerierSm> first = make(output);
  output.release();
  statusIsQuerier();
  const Ptr<QuerierSm> second = make(output);
  EXPECT_EQ(taken_.size(), 1u);
  sendGeneralQuery(first.get());
  EXPECT_EQ(taken_.size(), 1u);
  sendGeneralQuery(second.get());
  EXPECT_EQ(taken_.size(), 2u);
}

TEST_F(QueryOutputTest, itsHandlerMayDestroyIt) {
  const std::string longText(100, 'x');  // so that the handler owns memory
  std::unique_ptr<QueryOutput> output;
  output = std::make_unique<QueryOutput>([this, longText, &output](const PublishedQuery&) {
    output = nullptr;
    taken_.push_back(longText);
  });
  const Ptr<QuerierSm> querier = make(*output);
  sendGeneralQuery(querier.get());
  sendGeneralQuery(querier.get());
  EXPECT_THAT(taken_, ElementsAre(longText));
}

TEST_F(QueryOutputTest, itsHandlerMayReleaseTheQuerierInsideTheConstructor) {
  statusIsQuerier();
  std::unique_ptr<QueryOutput> output;
  output = std::make_unique<QueryOutput>([&](const PublishedQuery&) { output = nullptr; });
  const Ptr<QuerierSm> querier = make(*output);
  EXPECT_EQ(querier->refs(), 1u);
  EXPECT_EQ(status_->v3QueriesSent(), 1u);
}

// Another one who is notified of the count may have a second query published before the first
// reaches it; the output is notified before all others.
TEST_F(QueryOutputTest, keepsTheOrderWhenAnotherNotifieePublishes) {
  QueryOutput output(writer());
  const Ptr<QuerierSm> querier = make(output);
  Once<QuerierSm> publishes(querier, "writableCount",
                            [&] { sendQuery(querier.get(), 1.0, IpAddr()); });
  getOrCreateGroupSm(querier, group_)->rexmitGroupQueryIs(1);
  sendGroupSpecificQuery(querier.get(), group_);
  EXPECT_THAT(taken_, ElementsAre("10.0.0.5 -> 239.1.1.1, 12 bytes, after 0",
                                  "10.0.0.5 -> 0.0.0.0, 12 bytes, after 0"));
}

}  // namespace

}  // namespace Gmp::Igmp::testing
