// The outcome of a request, as every operation of a job reports it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "message/base_info.h"

namespace analysis::rokt::proto {
class Response;
}  // namespace analysis::rokt::proto

namespace analysis::rokt::message {

// Carried as text in Response.Message. A fresh record says "failed": code that ends well sets
// status to 0. The first text in info is the one the host sees; a caller adds its own only when
// what it called left info empty.
struct StatusInfo : public BaseInfo {
    void ToObject(Json& object) const override;
    void FromObject(const Json& object) override;
    [[nodiscard]] std::string GetClassName() const override;

    std::string dev_id = "-1";
    int32_t status = 1;
    std::string info;
};

// A new Response with SUCCESS for status 0 and FAILED for any other, and the text of the whole
// record as its message. Null, with an error, when there is no memory.
[[nodiscard]] std::shared_ptr<proto::Response> CreateResponse(const StatusInfo& statusInfo);

}  // namespace analysis::rokt::message
