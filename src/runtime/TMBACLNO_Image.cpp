// The object that installs the default output override. It stands alone in this file, so that it
// is part of the plug-in's image and not of every program that uses a function of this folder.

#include "runtime/tmbclno_holder.h"

namespace {

tmbclno_holder sHolder;

}  // namespace
