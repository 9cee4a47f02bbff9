#pragma once

// The payment sheet: asks the user to confirm a purchase ("Buy" or "Cancel") in a sheet over the
// window that shows the shop, without blocking the event loop. The purchase service calls it for
// every product that is not free.

#include "platform/store/StoreKit.h"

platform::PaymentSheet makePaymentSheet();
