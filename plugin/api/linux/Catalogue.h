// The rows by which the classes of this plug-in are registered with the host.
#pragma once

#include "quill/IClass.h"

namespace tessel::dualos {

// One class of the catalogue. Clients look the names up verbatim, so their irregular word order
// stays.
struct CatalogueRow {
  const char* name;        // the class itself
  const char* push_alias;  // constructs with false; null for a class without aliases
  const char* pull_alias;  // constructs with true; null for a class without aliases
  // Registers the class under `name`, or returns the record that has this name already.
  quill::base::IClass* (*enter)(const char* name);
  // Attaches the class's tag; null for a class without one.
  void (*tag)(quill::base::IClass& record);
};

// Registers the class of a row with its metadata, tag and aliases. A second call registers nothing:
// it logs the names that are taken and refreshes the metadata.
void Register(const CatalogueRow& row);

}  // namespace tessel::dualos
