#include "trovi/Remote.h"

#include <memory>

namespace trovi::remote {

void Element::enqueue(messages::Message message) const
{
    if (channel_ == nullptr)
        throw std::runtime_error("This remote element is bound to no node.");
    if (!channel_->isOfThisProcess())
        throw std::runtime_error("This remote element belongs to the process that made it; this process was forked off "
                                 "that one and must set up a node of its own.");
    channel_->post(std::move(message));
}

std::future<Bytes> Element::callAsync(StoreCommand command, std::uint64_t id, Bytes arguments) const
{
    auto promise = std::make_shared<std::promise<Bytes>>();
    std::future<Bytes> answer = promise->get_future();
    send(messages::Call{{0, reference, command, id}, nullptr, std::move(arguments)},
         [promise = std::move(promise)](std::istream& stream) { promise->set_value(ByteReader(stream).rest()); });
    return answer;
}

Bytes waitFor(std::future<Bytes> answer, std::chrono::milliseconds timeout)
{
    if (answer.wait_for(timeout) != std::future_status::ready)
        throw std::runtime_error("RPC timeout!");
    return answer.get();
}

Bytes Element::call(StoreCommand command, std::uint64_t id, Bytes arguments, std::chrono::milliseconds timeout) const
{
    return waitFor(callAsync(command, id, std::move(arguments)), timeout);
}

void Element::set(std::uint64_t id, Bytes value) const
{
    send(messages::Set{{0, reference, StoreCommand::set, id}, std::move(value)}, nullptr);
}

Element Element::extended(messages::InternalType type, std::uint64_t id, const Bytes& arguments) const
{
    messages::Internal step;
    step.header = {0, reference, StoreCommand::internal, id};
    ByteWriter writer(step.buffer);
    encode(writer, type);
    writer.write(arguments.data(), arguments.size());
    Element result = *this;
    result.path.push_back(std::move(step));
    return result;
}

Element Element::child(std::uint64_t functionId, const Bytes& arguments) const
{
    return extended(messages::InternalType::function, functionId, arguments);
}

Element Element::memberChild(std::uint64_t memberId) const
{
    return extended(messages::InternalType::member, memberId, {});
}

std::string Member::operator()() const
{
    return "trovi::remote::Member{ type = " + type_() + ", id = " + std::to_string(id_) +
           ", ref = " + toString(getReference()) + "}";
}

void Member::check(const traits::TypeInfo& given) const
{
    // Words, misfit and blanks are compared by scripts.
    if (!(given == type_))
        throw std::runtime_error("Type mismatch in setting member. Member = " + (*this)() + ", provided =  " + given() +
                                 " was provided.");
}

std::string MemberFunction::operator()() const
{
    return "trovi::remote::MemberFunction{ return = " + returnType_() + ", param = " + paramsType_() +
           ", id = " + std::to_string(id_) + ", ref = " + toString(getReference()) + "}";
}

void MemberFunction::check(const traits::TypeInfo& givenReturn, const traits::TypeInfo& givenParams) const
{
    // The spelling is compared by scripts.
    if (!(givenReturn == returnType_ && givenParams == paramsType_))
        throw std::runtime_error("Type mismatch in member function invokation.\nThis = " + (*this)() +
                                 "\nGiven return = " + givenReturn() + "\nGiven param = " + givenParams() + "\n");
}

const Member& ClassBase::member(const std::string& name) const
{
    if (const auto place = members_.find(name); place != members_.end())
        return place->second;
    throw std::out_of_range("The remote class has no member " + name);
}

const MemberFunction& ClassBase::function(const std::string& name) const
{
    if (const auto place = functions_.find(name); place != functions_.end())
        return place->second;
    throw std::out_of_range("The remote class has no function " + name);
}

void ClassBase::addMember(const char* name, traits::TypeInfo type)
{
    members_.insert_or_assign(name, Member(*this, members_.size(), type));
}

void ClassBase::addFunction(const char* name, traits::TypeInfo returnType, traits::TypeInfo paramsType)
{
    functions_.insert_or_assign(name, MemberFunction(*this, functions_.size(), returnType, paramsType));
}

} // namespace trovi::remote
