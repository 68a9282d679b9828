#include "common/RecordFields.h"

namespace qipg::internal {

#define QIPG_FIELD(name, Name) \
  RecordField { #name, &PaymentResponse::name, &PaymentResponse::set##Name }

const std::array<RecordField, 25> kRecordFields = {
    QIPG_FIELD(transactionReferenceNo, TransactionReferenceNo),
    QIPG_FIELD(orderID, OrderID),
    QIPG_FIELD(amount, Amount),
    QIPG_FIELD(statusCode, StatusCode),
    QIPG_FIELD(statusDescription, StatusDescription),
    QIPG_FIELD(rrn, Rrn),
    QIPG_FIELD(authnCode, AuthnCode),
    QIPG_FIELD(authzCode, AuthzCode),
    QIPG_FIELD(authNStatus, AuthNStatus),
    QIPG_FIELD(authZStatus, AuthZStatus),
    QIPG_FIELD(responseCode, ResponseCode),
    QIPG_FIELD(captureStatus, CaptureStatus),
    QIPG_FIELD(pgRefCancelReqID, PgRefCancelReqID),
    QIPG_FIELD(refundAmount, RefundAmount),
    QIPG_FIELD(transactionDateTime, TransactionDateTime),
    QIPG_FIELD(addtionalField1, AddtionalField1),
    QIPG_FIELD(addtionalField2, AddtionalField2),
    QIPG_FIELD(addtionalField3, AddtionalField3),
    QIPG_FIELD(addtionalField4, AddtionalField4),
    QIPG_FIELD(addtionalField5, AddtionalField5),
    QIPG_FIELD(addtionalField6, AddtionalField6),
    QIPG_FIELD(addtionalField7, AddtionalField7),
    QIPG_FIELD(addtionalField8, AddtionalField8),
    QIPG_FIELD(addtionalField9, AddtionalField9),
    QIPG_FIELD(addtionalField10, AddtionalField10),
};

#undef QIPG_FIELD

}  // namespace qipg::internal
