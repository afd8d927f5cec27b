#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "vakdtm/frame/DtmMultiProcessor.h"
#include "vakdtm/store/CellValue.h"

#include "support/TestGrid.h"

namespace vak::test {
namespace {

/// Writes its letter and what happens to it into a text that all members share.
class Member final : public DtmProcessor {
 public:
  Member(std::string name, std::string& heard) : name_(std::move(name)), heard_(heard) {}
  ~Member() override { heard_ += "~" + name_ + " "; }
  Member(const Member&) = delete;
  Member& operator=(const Member&) = delete;

  DtmProcessor* Clone() override {
    if (!clonable) return nullptr;
    auto clone = std::make_unique<Member>(name_ + "'", heard_);
    clone->answer = answer;
    clone->weight = weight;
    return clone.release();
  }
  bool Init(DtmAccess& /*access*/) override { return Note("I"); }
  bool Fini() override { return Note("F"); }
  bool InitRow(int /*row*/, int /*colBegin*/, int /*colEnd*/) override { return Note("R"); }
  bool ProcessArea(int /*row*/, int /*col*/, double& area) override { return Leave("A", area); }
  bool ProcessCell(int /*row*/, int /*col*/, double& area) override { return Leave("C", area); }

  bool clonable = true;
  bool answer = true;
  double weight = 0.5;

 private:
  bool Note(const std::string& what) {
    heard_ += what + name_ + " ";
    return answer;
  }
  bool Leave(const std::string& what, double& area) {
    area = weight;
    return Note(what);
  }

  std::string name_;
  std::string& heard_;
};

class DtmMultiProcessorTest : public testing::Test {
 protected:
  Member* Add(const std::string& name) {
    auto member = std::make_unique<Member>(name, heard_);
    Member* const added = member.get();
    group_->AddProcessor(member.release());
    return added;
  }
  std::string Heard() { return std::exchange(heard_, std::string()); }

  TestGrid grid_;
  std::string heard_;
  std::unique_ptr<DtmMultiProcessor> group_ = std::make_unique<DtmMultiProcessor>();
  double weight_ = 1.0;
};

TEST_F(DtmMultiProcessorTest, CallsMembersInOrderAndFiniBackwards) {
  Add("a");
  Add("b");
  Add("c");
  EXPECT_EQ(group_->NumProcessors(), 3);
  EXPECT_TRUE(group_->Init(grid_.Access()));
  EXPECT_TRUE(group_->ProcessArea(0, 0, weight_));
  EXPECT_TRUE(group_->ProcessCell(0, 0, weight_));
  EXPECT_TRUE(group_->Fini());
  EXPECT_EQ(heard_, "Ia Ib Ic Aa Ab Ac Ca Cb Cc Fc Fb Fa ");
  EXPECT_EQ(weight_, 0.5);
}

TEST_F(DtmMultiProcessorTest, EmptyGroupAnswersTrue) {
  EXPECT_TRUE(group_->Init(grid_.Access()));
  EXPECT_TRUE(group_->ProcessArea(0, 0, weight_));
  EXPECT_TRUE(group_->ProcessCell(0, 0, weight_));
  EXPECT_TRUE(group_->Fini());
  group_->AddProcessor(nullptr);
  EXPECT_EQ(group_->NumProcessors(), 0);
}

TEST_F(DtmMultiProcessorTest, FirstFalseEndsTheCall) {
  Add("a");
  Add("b")->answer = false;
  Add("c");
  EXPECT_FALSE(group_->Init(grid_.Access()));
  EXPECT_EQ(Heard(), "Ia Ib ");
  EXPECT_FALSE(group_->ProcessArea(0, 0, weight_));
  EXPECT_EQ(Heard(), "Aa Ab ");
  EXPECT_FALSE(group_->ProcessCell(0, 0, weight_));
  EXPECT_EQ(Heard(), "Ca Cb ");
  EXPECT_FALSE(group_->Fini());
  EXPECT_EQ(Heard(), "Fc Fb ");
}

TEST_F(DtmMultiProcessorTest, WeightOfNothingEndsTheChainWithTrueAndNotANumberDoesNot) {
  struct Case {
    double weight;
    std::string heard;
  };
  Member* const first = Add("a");
  Add("b");
  for (const Case& one :
       {Case{0.0, "Aa Ca "}, Case{-0.0, "Aa Ca "}, Case{-1.0, "Aa Ca "}, Case{1e-300, "Aa Ab Ca Cb "},
        Case{EmptyDouble(), "Aa Ab Ca Cb "}, Case{std::numeric_limits<double>::quiet_NaN(), "Aa Ab Ca Cb "}}) {
    first->weight = one.weight;
    EXPECT_TRUE(group_->ProcessArea(0, 0, weight_));
    EXPECT_TRUE(group_->ProcessCell(0, 0, weight_));
    EXPECT_EQ(Heard(), one.heard) << one.weight;
  }
}

TEST_F(DtmMultiProcessorTest, FalseCountsMoreThanAWeightOfNothing) {
  Member* const first = Add("a");
  first->weight = 0;
  first->answer = false;
  EXPECT_FALSE(group_->ProcessArea(0, 0, weight_));
  EXPECT_FALSE(group_->ProcessCell(0, 0, weight_));
}

TEST_F(DtmMultiProcessorTest, RowsOfMembersAreNeverBegun) {
  Add("a")->answer = false;
  EXPECT_TRUE(group_->InitRow(0, 0, 1));
  EXPECT_EQ(heard_, "");
}

TEST_F(DtmMultiProcessorTest, MemberThatDoesNotWantAnAreaKeepsAllFromItsCells) {
  ASSERT_TRUE(grid_.Set(0, 0, dVAL, 1));
  Add("a")->weight = 0;
  Add("b");
  EXPECT_TRUE(group_->ProcessAllCells(grid_.Access()));
  EXPECT_EQ(heard_, "Ia Ib Aa Fb Fa ");
}

TEST_F(DtmMultiProcessorTest, MembersAreDeletedLastFirst) {
  Add("a");
  Add("b");
  Add("c");
  group_->ClearProcessors();
  EXPECT_EQ(Heard(), "~c ~b ~a ");
  EXPECT_EQ(group_->NumProcessors(), 0);
  Add("d");
  Add("e");
  group_.reset();
  EXPECT_EQ(Heard(), "~e ~d ");
}

TEST_F(DtmMultiProcessorTest, CopiesAndClonesHoldClonesInOrder) {
  Add("a");
  Add("b");
  const DtmMultiProcessor copy(*group_);
  EXPECT_EQ(copy.NumProcessors(), 2);
  const std::unique_ptr<DtmProcessor> clone(group_->Clone());
  ASSERT_NE(clone, nullptr);
  EXPECT_TRUE(clone->Init(grid_.Access()));
  EXPECT_EQ(Heard(), "Ia' Ib' ");
  DtmMultiProcessor other;
  other.AddProcessor(std::make_unique<Member>("x", heard_).release());
  other = *group_;
  EXPECT_TRUE(other.Init(grid_.Access()));
  EXPECT_EQ(Heard(), "~x Ia' Ib' ");
}

TEST_F(DtmMultiProcessorTest, AssignedToItselfStaysAsItIs) {
  Add("a");
  const DtmMultiProcessor& same = *group_;
  *group_ = same;
  EXPECT_EQ(group_->NumProcessors(), 1);
  EXPECT_EQ(heard_, "");
}

TEST_F(DtmMultiProcessorTest, GroupWithAMemberThatCannotBeClonedCannotBeEither) {
  Add("a");
  Add("b")->clonable = false;
  EXPECT_EQ(group_->Clone(), nullptr);
  DtmMultiProcessor copy(*group_);
  Heard();
  EXPECT_FALSE(copy.Init(grid_.Access())) << "it lacks a member, which might have been a veto";
  EXPECT_EQ(copy.Clone(), nullptr);
  EXPECT_EQ(DtmMultiProcessor(copy).Clone(), nullptr);
  Heard();
  copy.ClearProcessors();
  EXPECT_TRUE(copy.Init(grid_.Access()));
  copy = *group_;
  EXPECT_FALSE(copy.Init(grid_.Access()));
  copy = DtmMultiProcessor();
  EXPECT_TRUE(copy.Init(grid_.Access()));
  EXPECT_TRUE(group_->Init(grid_.Access()));
}

}  // namespace
}  // namespace vak::test
