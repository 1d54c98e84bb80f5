// The transitions between roles that the document lists are those that happen, each with its trace.
#include <fstream>
#include <set>

#include "Once.h"
#include "RandomBench.h"

namespace Gmp::Igmp::testing {

namespace {

class QuerierRoles : public RandomBench {
 protected:
  // "old role, new role, function".
  using Transitions = std::set<std::string>;

  static Transitions documented() {
    std::ifstream document(QUERIER_ROLES_DOCUMENT);
    EXPECT_TRUE(document) << QUERIER_ROLES_DOCUMENT;
    Transitions all;
    for (std::string line; std::getline(document, line);) {
      if (!line.starts_with("| `")) continue;
      std::vector<std::string> cells;
      for (size_t at = 0; cells.size() < 3; ++at) {
        const size_t open = line.find('`', at);
        at = line.find('`', open + 1);
        cells.push_back(line.substr(open + 1, at - open - 1));
      }
      EXPECT_TRUE(all.insert(cells[0] + ", " + cells[1] + ", " + cells[2]).second)
          << "twice in the document: " << line;
    }
    return all;
  }

  // Takes the transitions that were traced since the last call. Each begins with the role in which
  // the one before ended, and the last one ends with the role that is published.
  void takeTransitions() {
    for (const TracedLine& line : traces_) {
      constexpr std::string_view before = "QuerierSm( vlan10 ): role changes from ";
      if (!line.text.starts_with(before)) continue;
      const size_t to = line.text.find(" to ");
      const std::string from = line.text.substr(before.size(), to - before.size());
      EXPECT_EQ(from, role_) << "a change without a trace";
      role_ = line.text.substr(to + 4);
      observed_.insert(from + ", " + role_ + ", " + line.function);
    }
    traces_.clear();
    EXPECT_EQ(role_, stringValue(status_->state())) << "a change without a trace";
  }

  std::string role_ = "querierStateInitial";
  Transitions observed_;
};

TEST_F(QuerierRoles, theDocumentListsTheTransitionsOfRandomSequences) {
  igmpPacketTrace->facilityLevelIs(Mox::TraceHandle::off);
  machineTrace->facilityLevelIs(3);
  forEachSequence(
      3000, [&] { takeTransitions(); }, [&] { role_ = "querierStateInitial"; });
  EXPECT_EQ(observed_, documented());
}

TEST_F(QuerierRoles, aRoleThatStaysIsNotTraced) {
  start();
  EXPECT_EQ(traced("QuerierSm( vlan10 ): role changes from querierStateInitial to "
                   "querierStateQuerier"),
            1u);
  traces_.clear();
  querier_->becomeQuerier();
  EXPECT_EQ(tracedBegin("QuerierSm( vlan10 ): role changes"), 0u);
}

TEST_F(QuerierRoles, aRoleIsTracedBeforeItIsPublished) {
  config_->sendQueryIs(false);
  start();
  traces_.clear();
  size_t tracedThen = 0;
  Once<QuerierStatus> published(
      status_, "state", [&] { tracedThen = tracedBegin("QuerierSm( vlan10 ): role changes"); });
  querier_->becomeQuerier();
  EXPECT_TRUE(published.acted());
  EXPECT_EQ(tracedThen, 1u);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
