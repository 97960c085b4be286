// setup_inf.h - an INF file as SetupAPI reads it.
#pragma once

#include "inf_sections.h"

#include <windows.h>

#include <setupapi.h>

namespace kestro::servicing {

// Throws with SetupAPI's own code for what is no INF, and with the file's for what cannot be read.
class SetupInf : public InfSections {
  public:
    explicit SetupInf(const std::string& hostPath);
    ~SetupInf() override;
    SetupInf(const SetupInf&) = delete;
    SetupInf& operator=(const SetupInf&) = delete;

    std::vector<std::string> Names() const override { return names_; }
    std::vector<InfLine> Section(const std::string& name) const override;

  private:
    void RequireSignature(const std::string& hostPath) const;

    HINF inf_;
    std::vector<std::string> names_;
};

} // namespace kestro::servicing
