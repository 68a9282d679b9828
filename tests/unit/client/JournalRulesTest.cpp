// How reconciliation reads the gateway's status for a journal entry.
#include <gtest/gtest.h>

#include <optional>

#include "qipg/Journal.h"

namespace qipg {
namespace {

TEST(JournalReconciliation, OnlyTheEffectOfItsOwnRequestSettlesACancelOrRefund) {
  using enum JournalOperation;
  using enum JournalState;
  const struct {
    JournalOperation operation;
    const char* statusCode;
    std::optional<JournalState> state;
  } rows[] = {
      {Payment, "S", Settled},  {Payment, "F", Settled},  {Payment, "P", std::nullopt},
      {Cancel, "C", Settled},   {Cancel, "S", Attention}, {Cancel, "R", Attention},
      {Refund, "R", Settled},   {Refund, "S", Attention}, {Refund, "C", Attention},
      {Refund, "F", Attention}, {Refund, "P", Attention},
  };
  for (const auto& row : rows) {
    PaymentResponse status;
    status.setStatusCode(row.statusCode);
    EXPECT_EQ(reconciledState(row.operation, status), row.state)
        << static_cast<int>(row.operation) << " " << row.statusCode;
  }
}

}  // namespace
}  // namespace qipg
