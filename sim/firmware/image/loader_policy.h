// What starting an image means in this run that the machine found on a medium, in a firmware volume or in a buffer. The
// driver under test and the simulator's own built-in applications always run.
#pragma once

#include <string>
#include <vector>

#include "platform/uefi_base.h"

namespace sim {

enum class LoaderAction {
  HandOver,  // an application: the boot ends here, with it on record; a driver answers EFI_ACCESS_DENIED
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
