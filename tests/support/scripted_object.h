// scripted_object.h - what all objects of the scripted disk service have in common.
#pragma once

#include "support/disk_service.h"

#include <map>

namespace kestro::test {

// The name of an identifier of the disk service.
std::string NameOf(REFGUID id);

// One interface of one object. Calls of it after its last release fail the test.
template <typename Interface>
class Scripted : public Interface {
  public:
    Scripted(DiskService& service, std::string name) : service_(service), name_(std::move(name)) {}
    virtual ~Scripted() = default;
    Scripted(const Scripted&) = delete;
    Scripted& operator=(const Scripted&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        const std::string wanted = NameOf(id);
        const auto offer = offers_.find(wanted);
        const HRESULT result = offer == offers_.end() ? E_NOINTERFACE : Answer("QueryInterface");
        Tell("QueryInterface(" + wanted + ')', result);
        if (offer != offers_.end())
            service_.Give<void>(object, offer->second.name, result, offer->second.make);
        return result;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return Count("AddRef", +1); }
    ULONG STDMETHODCALLTYPE Release() override { return Count("Release", -1); }

  protected:
    const std::string& Name() const { return name_; }
    DiskService& Service() const { return service_; }

    // Answers QueryInterface for the interface of that name with a new object.
    void Offer(const char* interface_name, std::string object, std::function<void*()> make)
    {
        offers_[interface_name] = {std::move(object), std::move(make)};
    }

    HRESULT Answer(const std::string& method) const
    {
        return Platform::Active().NextAnswer(name_ + '.' + method);
    }
    void Tell(const std::string& call, HRESULT result)
    {
        CheckAlive(call);
        Platform::Active().Record(
            Format("%s.%s -> %08X", name_.c_str(), call.c_str(), static_cast<unsigned>(result)));
    }
    // The answer, told.
    HRESULT Reply(const char* method, const std::string& arguments = "")
    {
        const HRESULT result = Answer(method);
        Tell(method + ('(' + arguments) + ')', result);
        return result;
    }
    HRESULT Unexpected(const char* method)
    {
        const std::string event = "unexpected call of " + name_ + '.' + method;
        Platform::Active().Record(event);
        ADD_FAILURE() << event;
        return E_NOTIMPL;
    }

  private:
    struct Offered {
        std::string name;
        std::function<void*()> make;
    };

    ULONG Count(const char* method, long change)
    {
        CheckAlive(method);
        references_ += change;
        Platform::Active().Record(Format("%s.%s() -> %ld", name_.c_str(), method, references_));
        return static_cast<ULONG>(references_);
    }
    void CheckAlive(const std::string& call) const
    {
        if (references_ < 1)
            ADD_FAILURE() << name_ << '.' << call << " after the last release";
    }

    DiskService& service_;
    std::string name_;
    std::map<std::string, Offered> offers_;
    long references_ = 1;
};

// A slot that the library has no business with.
#define UNEXPECTED(method, ...)                                                                    \
    HRESULT STDMETHODCALLTYPE method(__VA_ARGS__) override                                         \
    {                                                                                              \
        return this->Unexpected(#method);                                                          \
    }

} // namespace kestro::test
