// SPDX-License-Identifier: MIT
// What libportablefaces.so exports; portable/face/facenets.cpp loads it.
#include "portable/face/module/dnnfacenets.h"

extern "C" {
extern __attribute__((visibility("default"))) const portable::FaceModule portableFaces;
}

const portable::FaceModule portableFaces{portable::DnnFaceNets::create};
