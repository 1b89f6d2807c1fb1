// The configuration header of a PCI function (PCI Local Bus 3.0, chapter 6, and the PCI-to-PCI bridge
// architecture): byte offsets, register bits and the class codes by which functions are told apart.
#pragma once

#include "platform/uefi_base.h"

// Common to all header types.
inline constexpr UINT32 PCI_VENDOR_ID_OFFSET = 0x00;           // 16 bits; 0xFFFF: nothing there
inline constexpr UINT32 PCI_DEVICE_ID_OFFSET = 0x02;           // 16 bits
inline constexpr UINT32 PCI_COMMAND_OFFSET = 0x04;             // 16 bits
inline constexpr UINT32 PCI_PRIMARY_STATUS_OFFSET = 0x06;      // 16 bits
inline constexpr UINT32 PCI_REVISION_ID_OFFSET = 0x08;         // 8 bits
inline constexpr UINT32 PCI_CLASSCODE_OFFSET = 0x09;           // 24 bits: interface, subclass, base class
inline constexpr UINT32 PCI_SUBCLASS_OFFSET = 0x0A;            // 8 bits
inline constexpr UINT32 PCI_BASE_CLASS_OFFSET = 0x0B;          // 8 bits
inline constexpr UINT32 PCI_CACHELINE_SIZE_OFFSET = 0x0C;      // 8 bits
inline constexpr UINT32 PCI_LATENCY_TIMER_OFFSET = 0x0D;       // 8 bits
inline constexpr UINT32 PCI_HEADER_TYPE_OFFSET = 0x0E;         // 8 bits
inline constexpr UINT32 PCI_BIST_OFFSET = 0x0F;                // 8 bits
inline constexpr UINT32 PCI_BASE_ADDRESSREG_OFFSET = 0x10;     // 32 bits each; six in type 0, two in type 1
inline constexpr UINT32 PCI_CAPABILITY_POINTER_OFFSET = 0x34;  // 8 bits
inline constexpr UINT32 PCI_INT_LINE_OFFSET = 0x3C;            // 8 bits
inline constexpr UINT32 PCI_INT_PIN_OFFSET = 0x3D;             // 8 bits

// Type 0: devices.
inline constexpr UINT32 PCI_CARDBUS_CIS_OFFSET = 0x28;          // 32 bits
inline constexpr UINT32 PCI_SUBSYSTEM_VENDOR_ID_OFFSET = 0x2C;  // 16 bits
inline constexpr UINT32 PCI_SUBSYSTEM_ID_OFFSET = 0x2E;         // 16 bits
inline constexpr UINT32 PCI_EXPANSION_ROM_BASE = 0x30;          // 32 bits
inline constexpr UINT32 PCI_MINGNT_OFFSET = 0x3E;               // 8 bits
inline constexpr UINT32 PCI_MAXLAT_OFFSET = 0x3F;               // 8 bits

// Type 1: PCI-to-PCI bridges.
inline constexpr UINT32 PCI_BRIDGE_PRIMARY_BUS_REGISTER_OFFSET = 0x18;      // 8 bits
inline constexpr UINT32 PCI_BRIDGE_SECONDARY_BUS_REGISTER_OFFSET = 0x19;    // 8 bits
inline constexpr UINT32 PCI_BRIDGE_SUBORDINATE_BUS_REGISTER_OFFSET = 0x1A;  // 8 bits
inline constexpr UINT32 PCI_BRIDGE_SECONDARY_LATENCY_OFFSET = 0x1B;         // 8 bits
inline constexpr UINT32 PCI_BRIDGE_IO_BASE_OFFSET = 0x1C;                   // 8 bits
inline constexpr UINT32 PCI_BRIDGE_IO_LIMIT_OFFSET = 0x1D;                  // 8 bits
inline constexpr UINT32 PCI_BRIDGE_STATUS_REGISTER_OFFSET = 0x1E;           // 16 bits
inline constexpr UINT32 PCI_BRIDGE_MEMORY_BASE_OFFSET = 0x20;               // 16 bits
inline constexpr UINT32 PCI_BRIDGE_MEMORY_LIMIT_OFFSET = 0x22;              // 16 bits
inline constexpr UINT32 PCI_BRIDGE_PREFETCH_BASE_OFFSET = 0x24;             // 16 bits
inline constexpr UINT32 PCI_BRIDGE_PREFETCH_LIMIT_OFFSET = 0x26;            // 16 bits
inline constexpr UINT32 PCI_BRIDGE_PREFETCH_BASE_UPPER_OFFSET = 0x28;       // 32 bits
inline constexpr UINT32 PCI_BRIDGE_PREFETCH_LIMIT_UPPER_OFFSET = 0x2C;      // 32 bits
inline constexpr UINT32 PCI_BRIDGE_IO_BASE_UPPER_OFFSET = 0x30;             // 16 bits
inline constexpr UINT32 PCI_BRIDGE_IO_LIMIT_UPPER_OFFSET = 0x32;            // 16 bits
inline constexpr UINT32 PCI_BRIDGE_ROMBAR = 0x38;                           // 32 bits
inline constexpr UINT32 PCI_BRIDGE_CONTROL_REGISTER_OFFSET = 0x3E;          // 16 bits

inline constexpr UINT32 PCI_CONFIG_HEADER_SIZE = 0x40;
inline constexpr UINT32 PCI_MAX_CONFIG_OFFSET = 0x100;
inline constexpr UINT32 PCIE_MAX_CONFIG_OFFSET = 0x1000;

// Bits of the header type register.
inline constexpr UINT8 HEADER_LAYOUT_CODE = 0x7F;
inline constexpr UINT8 HEADER_TYPE_DEVICE = 0x00;
inline constexpr UINT8 HEADER_TYPE_PCI_TO_PCI_BRIDGE = 0x01;
inline constexpr UINT8 HEADER_TYPE_MULTI_FUNCTION = 0x80;

// Bits of the command register.
inline constexpr UINT16 EFI_PCI_COMMAND_IO_SPACE = 0x0001;
inline constexpr UINT16 EFI_PCI_COMMAND_MEMORY_SPACE = 0x0002;
inline constexpr UINT16 EFI_PCI_COMMAND_BUS_MASTER = 0x0004;
inline constexpr UINT16 EFI_PCI_COMMAND_INTERRUPT_DISABLE = 0x0400;

// Bits of the status register.
inline constexpr UINT16 EFI_PCI_STATUS_CAPABILITY = 0x0010;

// Base classes, each followed by the subclasses that boot devices and bridges have.
inline constexpr UINT8 PCI_CLASS_OLD = 0x00;
inline constexpr UINT8 PCI_CLASS_MASS_STORAGE = 0x01;
inline constexpr UINT8 PCI_CLASS_MASS_STORAGE_SCSI = 0x00;
inline constexpr UINT8 PCI_CLASS_MASS_STORAGE_IDE = 0x01;
inline constexpr UINT8 PCI_CLASS_MASS_STORAGE_FLOPPY = 0x02;
inline constexpr UINT8 PCI_CLASS_MASS_STORAGE_IPI = 0x03;
inline constexpr UINT8 PCI_CLASS_MASS_STORAGE_RAID = 0x04;
inline constexpr UINT8 PCI_CLASS_MASS_STORAGE_ATA = 0x05;
inline constexpr UINT8 PCI_CLASS_MASS_STORAGE_SATADPA = 0x06;
inline constexpr UINT8 PCI_CLASS_MASS_STORAGE_SAS = 0x07;
inline constexpr UINT8 PCI_CLASS_MASS_STORAGE_SOLID_STATE = 0x08;
inline constexpr UINT8 PCI_CLASS_MASS_STORAGE_OTHER = 0x80;
inline constexpr UINT8 PCI_CLASS_NETWORK = 0x02;
inline constexpr UINT8 PCI_CLASS_NETWORK_ETHERNET = 0x00;
inline constexpr UINT8 PCI_CLASS_NETWORK_OTHER = 0x80;
inline constexpr UINT8 PCI_CLASS_DISPLAY = 0x03;
inline constexpr UINT8 PCI_CLASS_DISPLAY_VGA = 0x00;
inline constexpr UINT8 PCI_CLASS_DISPLAY_OTHER = 0x80;
inline constexpr UINT8 PCI_CLASS_MEDIA = 0x04;
inline constexpr UINT8 PCI_CLASS_MEMORY_CONTROLLER = 0x05;
inline constexpr UINT8 PCI_CLASS_BRIDGE = 0x06;
inline constexpr UINT8 PCI_CLASS_BRIDGE_HOST = 0x00;
inline constexpr UINT8 PCI_CLASS_BRIDGE_ISA = 0x01;
inline constexpr UINT8 PCI_CLASS_BRIDGE_P2P = 0x04;
inline constexpr UINT8 PCI_CLASS_SCC = 0x07;  // simple communication controllers
inline constexpr UINT8 PCI_SUBCLASS_SERIAL = 0x00;
inline constexpr UINT8 PCI_CLASS_SYSTEM_PERIPHERAL = 0x08;
inline constexpr UINT8 PCI_CLASS_INPUT_DEVICE = 0x09;
inline constexpr UINT8 PCI_CLASS_SERIAL = 0x0C;  // serial bus controllers
inline constexpr UINT8 PCI_CLASS_SERIAL_USB = 0x03;
inline constexpr UINT8 PCI_CLASS_SERIAL_FIBRECHANNEL = 0x04;
inline constexpr UINT8 PCI_CLASS_SERIAL_SMB = 0x05;

// Programming interfaces of USB controllers.
inline constexpr UINT8 PCI_IF_UHCI = 0x00;
inline constexpr UINT8 PCI_IF_OHCI = 0x10;
inline constexpr UINT8 PCI_IF_EHCI = 0x20;
inline constexpr UINT8 PCI_IF_XHCI = 0x30;
