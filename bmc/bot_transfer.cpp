#include "bmc/bot_transfer.h"

#include "bmc/bot_format.h"
#include "bmc/state.h"
#include "support/debug_print.h"
#include "support/pool.h"

namespace bds {
namespace {

constexpr UINTN kBlockSizeAnswer = 18;  // two bytes about the parameter, then the block-size record
constexpr UINTN kBlockSizeAt = kParameterData + 10;
constexpr UINT8 kTooBigBlock = 129;

constexpr UINTN kAnswerRoom = 51;
constexpr UINTN kBlockAnswer = 37;
constexpr UINTN kReadBlock = kBlockAnswer - kParameterData;
constexpr UINTN kMaxBlocks = 0xFF;

constexpr UINTN kBlockRequestRoom = 128;  // for the set selector, the block's number and the block
constexpr UINTN kBlockHeader = 2;

// What parameter 0 says while blocks are on their way, and behind the last one: readers wait for the latter.
constexpr UINT8 kInProgress = 1;
constexpr UINT8 kComplete = 0;

EFI_STATUS SetProgress(IpmiTransport& transport, UINT8 progress) {
  const UINT8 request[] = {kSetInProgress, progress};
  return SetBootOptionsPersistently(transport, request);
}

// Asks for the block size where it is not known yet.
EFI_STATUS LearnBlockSize(IpmiTransport& transport, FormatString<EFI_STATUS> failed) {
  if (gBmc.BotBlockSize != 0) {
    return EFI_SUCCESS;
  }
  UINT8 answer[kBlockSizeAnswer];
  const EFI_STATUS status = GetBootOptionsPersistently(transport, kBotBlockSize, 1, answer);
  if (EFI_ERROR(status)) {
    DebugPrint(failed, status);
    return EFI_DEVICE_ERROR;
  }
  const UINT8 size = answer[kBlockSizeAt];
  if (size == 0 || size >= kTooBigBlock) {
    DebugPrint("IPMI:Too big Block Size:%0x\n", gBmc.BotBlockSize);
    return EFI_OUT_OF_RESOURCES;
  }
  gBmc.BotBlockSize = size;
  return EFI_SUCCESS;
}

EFI_STATUS ReadBlock(IpmiTransport& transport, UINTN number, std::span<UINT8> answer) {
  return GetBootOptionsPersistently(transport, kBotBlock, static_cast<UINT8>(number), answer.first(kBlockAnswer));
}

// Copies the block at hand and asks for the next one, over all whole blocks of the buffer. A block that does not come
// leaves zeros, and so does all behind it: a BMC that stopped answering is not asked for each of them.
void CopyBlocks(IpmiTransport& transport, std::span<UINT8> answer, std::span<std::byte> buffer) {
  for (UINTN block = 0; block < buffer.size() / kReadBlock; ++block) {
    CopyMemory(buffer.data() + block * kReadBlock, answer.data() + kParameterData, kReadBlock);
    if (EFI_ERROR(ReadBlock(transport, block + 2, answer))) {
      return;
    }
  }
}

EFI_STATUS ReadBlocks(IpmiTransport& transport, std::span<UINT8> answer, std::byte* buffer, UINT16& size) {
  if (const EFI_STATUS status = ReadBlock(transport, 1, answer); EFI_ERROR(status)) {
    return status;
  }
  const auto header = LoadUnaligned<BOT_HEADER>(answer.data() + kParameterData);
  const UINTN needed = header.Length + kBotTail;
  if (header.Signature != kBotSignature || header.Length < kMinBotLength || needed / kReadBlock >= kMaxBlocks) {
    DebugPrint("IPMI:Invalid BOT Table\n");
    return EFI_NOT_FOUND;
  }
  if (size < needed) {
    size = static_cast<UINT16>(needed);
    DebugPrint("IPMI:BOT Buffer too small, Need :%0x\n", size);
    return EFI_BUFFER_TOO_SMALL;
  }
  ZeroMemory(buffer, needed);
  DebugPrint("IPMI:BOT Table Length :%0x\n", UINT16{header.Length});  // a copy: the record is packed
  CopyBlocks(transport, answer, {buffer, needed});
  if (BotSum({buffer, needed}) != 0) {
    ZeroMemory(buffer, needed);
    size = 0;
    DebugPrint("IPMI:BOT checksum wrong\n");
    return EFI_CRC_ERROR;
  }
  size = static_cast<UINT16>(needed);
  return EFI_SUCCESS;
}

void SendBlocks(IpmiTransport& transport, Bytes rest) {
  const UINTN blockSize = gBmc.BotBlockSize;
  if (blockSize + kBlockHeader > kBlockRequestRoom) {
    DebugPrint("GetBootOptions:Out of Resources\n");
    return;
  }
  for (UINT8 number = 1; !rest.empty(); ++number) {
    UINT8 request[1 + kBlockRequestRoom] = {kBotBlock, 0, number};
    const UINTN sent = rest.size() < blockSize ? rest.size() : blockSize;
    CopyMemory(request + 1 + kBlockHeader, rest.data(), sent);
    if (EFI_ERROR(SetBootOptionsPersistently(transport, {request, 1 + kBlockHeader + blockSize}))) {
      return;
    }
    rest = rest.subspan(sent);
  }
}

// The table's own bytes.
EFI_STATUS CheckTable(Bytes& table) {
  if (table.data() == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  BOT_HEADER header;
  if (!ReadBotHeader(table, header)) {
    DebugPrint("IPMI:Sending Invalid BOT Table to IXMO\n");
    return EFI_INVALID_PARAMETER;
  }
  table = table.first(header.Length);
  if (BotSum(table) != 0) {
    DebugPrint("IPMI:Bad Checksum in BOT to IXMO\n");
    return EFI_CRC_ERROR;
  }
  return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS ReadBMCBOT(IpmiTransport& transport, std::byte* buffer, UINT16& size) {
  if (const EFI_STATUS status = LearnBlockSize(transport, "IPMI:Set Block Size failed:%0x\n"); EFI_ERROR(status)) {
    return status;
  }
  if (const EFI_STATUS status = WaitSetInProgressClear(transport, WaitLog::Nothing); EFI_ERROR(status)) {
    return status;
  }
  const auto answer = AllocateArray<UINT8>(kAnswerRoom);
  if (!answer) {
    DebugPrint("IPMI:Failed allocating %0x4 bytes\n", kAnswerRoom);
    return EFI_OUT_OF_RESOURCES;
  }
  return ReadBlocks(transport, {answer.get(), kAnswerRoom}, buffer, size);
}

EFI_STATUS WriteBMCBOT(IpmiTransport& transport, Bytes table) {
  if (const EFI_STATUS status = CheckTable(table); EFI_ERROR(status)) {
    return status;
  }
  if (const EFI_STATUS status = LearnBlockSize(transport, "IPMI:Set Block size failed:%0x\n"); EFI_ERROR(status)) {
    return status;
  }
  if (table.size() > kMaxBlocks * gBmc.BotBlockSize) {
    DebugPrint("IPMI:BOT of %x bytes has too many blocks of %x\n", table.size(), gBmc.BotBlockSize);
    return EFI_OUT_OF_RESOURCES;
  }
  if (const EFI_STATUS status = WaitSetInProgressClear(transport, WaitLog::Nothing); EFI_ERROR(status)) {
    return status;
  }
  if (const EFI_STATUS status = SetProgress(transport, kInProgress); EFI_ERROR(status)) {
    return status;
  }
  SendBlocks(transport, table);
  static_cast<void>(SetProgress(transport, kComplete));
  return EFI_SUCCESS;
}

}  // namespace bds
