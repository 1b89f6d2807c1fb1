// Requests that were given up without an answer, and how the transfer finds its way behind them.
//
// A frame carries no number: the late answer to one request looks like the answer to the next of its kind, and a file
// would be filled through the handle of another. So before anything else is asked, a harmless request of a kind that is
// not owed is made. The BMC answers in turn: once that answer is here, no older one can come.
#pragma once

#include "bmc/bt_frame.h"

namespace bds {

// Remembers that an answer with this opcode may still come.
void OweBtAnswer(UINT8 opcode);
[[nodiscard]] bool BtAnswersAreOwed();

// Makes sure that no older answer can come any more, and throws away those that do. ownHandle is left alone by it.
// False when the BMC does not answer that either; tries until kBtPatience is spent.
[[nodiscard]] bool CatchUpWithBmc(UINT16 ownHandle, BtWaiting& waiting);

}  // namespace bds
