/// @file qipg.h
/// Everything a host application needs from the core library, in one include:
/// the client and its delegate, the idiomatic client (Client, Result, Error), the request
/// builders, the response record, the envelope and its primitives, the payment page controller
/// and its ports. The payment windows (<qipg/PaymentWindow.h>, libqipg-gtk, and the Qt one) are
/// not included.
#pragma once

#include "qipg/Base64.h"
#include "qipg/CancelRequest.h"
#include "qipg/Client.h"
#include "qipg/ClientOptions.h"
#include "qipg/ClientRequests.h"
#include "qipg/CommonUtilities.h"
#include "qipg/Cryptography.h"
#include "qipg/Error.h"
#include "qipg/Events.h"
#include "qipg/Export.h"
#include "qipg/GatewayConfig.h"
#include "qipg/IPGCardCaptureRequest.h"
#include "qipg/IPGPaymentControllerDelegate.h"
#include "qipg/IPGResponseDelegate.h"
#include "qipg/IPGStandardRequest.h"
#include "qipg/PaymentPagePorts.h"
#include "qipg/PaymentRequestFields.h"
#include "qipg/PaymentResponse.h"
#include "qipg/QuandrelIPG.h"
#include "qipg/RefundRequest.h"
#include "qipg/Result.h"
#include "qipg/StatusRequest.h"
#include "qipg/StringEncryption.h"
#include "qipg/TransportError.h"
#include "qipg/Types.h"
#include "qipg/URLRequest.h"
#include "qipg/Version.h"
#include "qipg/WebviewController.h"
