// What starting an operating system's loader means in this run. Loaders are applications (subsystem 10) that came from
// a device; drivers and the simulator's own built-in applications always run.
#pragma once

#include <string>
#include <vector>

#include "platform/uefi_base.h"

namespace sim {

enum class LoaderAction {
  HandOver,  // the boot ends here, with this image on record
  Answer,    // StartImage answers a status and runs nothing
  Execute,   // the image's own code runs
};

struct LoaderRule {
  std::string pathPart;  // compared with the image's path as text, letters' case aside
  LoaderAction action = LoaderAction::Answer;
  EFI_STATUS status = EFI_SUCCESS;
};

struct LoaderPolicy {
  LoaderAction action = LoaderAction::HandOver;
  EFI_STATUS status = EFI_SUCCESS;  // for Answer
  // The first rule whose text is part of the path is asked before the general action.
  std::vector<LoaderRule> rules;
  // Whether the platform's boot-start protocol is installed when a loader is about to start, as firmware does.
  bool signalBootStart = true;

  // The rule for an image of that path.
  LoaderRule For(const std::string& path) const;
};

}  // namespace sim
