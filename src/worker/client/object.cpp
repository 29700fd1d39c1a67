// Object, Arg and the Session's object commands, over the ObjectSpace of the
// worker that made each object.
#include <complex>

#include "object_space.h"
#include "session_impl.h"

namespace vxpy {

namespace vd = foundation::veltradata;
using detail::Helper;
using detail::ObjectSpace;

namespace {

vd::Array addressArray(std::uint64_t address) {
    return vd::ArrayFactory().createScalar(address);
}

vd::Array textArray(const std::string& utf8) {
    try {
        return vd::ArrayFactory().createCharArray(utf8);
    } catch (const vd::Exception& error) {
        throw Error(std::string("text for Python must be UTF-8: ") + error.what());
    }
}

// A helper's conversion of the object; its refusal is an Error naming the
// object's type, not a Python failure.
ObjectSpace::Result converted(ObjectSpace& space, Helper helper, const Object& object) {
    try {
        return space.invoke(helper, {Arg(object)});
    } catch (const PythonError& error) {
        if (error.pythonType() == detail::kCannotConvert) {
            throw Error(error.message());
        }
        throw;
    }
}

}  // namespace

// --- Arg ------------------------------------------------------------------------

Arg::Arg(bool value) : array_(vd::ArrayFactory().createScalar(value)) {}

Arg::Arg(const char* text) {
    if (text == nullptr) {
        throw Error("a null C string has no Python form (nullptr alone is None)");
    }
    array_ = textArray(text);
}

Arg::Arg(std::string_view text) : array_(textArray(std::string(text))) {}

Arg::Arg(const std::string& text) : array_(textArray(text)) {}

// The library's marker for a missing string is the one way to send None.
Arg::Arg(std::nullptr_t) {
    array_ = vd::ArrayFactory().createStructArray({1, 1}, {"VX_PylnkSP_MissingString"});
}

Arg::Arg(vd::Array value) : array_(std::move(value)) {}

// The library's marker for an object it already holds, by address.
Arg::Arg(Object object) : object_(std::move(object)) {
    const std::uint64_t address = object_.handle().address;
    vd::StructArray marker =
        vd::ArrayFactory().createStructArray({1, 1}, {"VX_PylnkSP_PyObjectAddress"});
    marker[0]["VX_PylnkSP_PyObjectAddress"] = addressArray(address);
    array_ = marker;
}

Keyword kw(std::string name, Arg value) {
    return Keyword{std::move(name), std::move(value)};
}

// --- Object ---------------------------------------------------------------------

Object::Object(std::shared_ptr<const detail::Handle> handle) : handle_(std::move(handle)) {}

const detail::Handle& Object::handle() const {
    if (!handle_) {
        throw Error("this Object holds no object (default-constructed or moved from)");
    }
    return *handle_;
}

std::uint64_t Object::address() const {
    return handle_ ? handle_->address : 0;
}

Object Object::attr(const std::string& name) const {
    const detail::Handle& self = handle();
    return self.space->object("pyGetMember", {addressArray(self.address), textArray(name)});
}

void Object::setAttr(const std::string& name, const Arg& value) const {
    handle().space->invoke(Helper::SetAttr, {*this, name, value});
}

Object Object::item(const Arg& key) const {
    return handle().space->invoke(Helper::GetItem, {*this, key}).object;
}

void Object::setItem(const Arg& key, const Arg& value) const {
    handle().space->invoke(Helper::SetItem, {*this, key, value});
}

Object Object::call(const std::vector<Arg>& args, const std::vector<Keyword>& kwargs) const {
    const detail::Handle& self = handle();
    return self.space->invoke(self.address, args, kwargs).object;
}

std::string Object::str() const {
    const detail::Handle& self = handle();
    return self.space->text(self.space->object("pyStr", {addressArray(self.address)}));
}

std::string Object::repr() const {
    ObjectSpace& space = *handle().space;
    return space.text(space.invoke(Helper::Repr, {*this}).object);
}

std::string Object::typeName() const {
    ObjectSpace& space = *handle().space;
    return space.text(space.invoke(Helper::TypeName, {*this}).object);
}

bool Object::isNone() const {
    const detail::Handle& self = handle();
    self.space->requireAlive();
    return self.address == self.space->noneAddress();
}

double Object::toDouble() const {
    const vd::TypedArray<double> value(converted(*handle().space, Helper::ToFloat, *this).scalar);
    return value[0];
}

std::int64_t Object::toInt() const {
    const vd::TypedArray<std::complex<double>> halves(
        converted(*handle().space, Helper::ToInt64, *this).scalar);
    const std::complex<double> value = halves[0];
    const auto high = static_cast<std::uint64_t>(static_cast<std::int64_t>(value.real()));
    const auto low = static_cast<std::uint64_t>(value.imag());
    return static_cast<std::int64_t>((high << 32) | low);
}

bool Object::toBool() const {
    ObjectSpace& space = *handle().space;
    const vd::TypedArray<bool> value(space.invoke(Helper::Bool, {*this}).scalar);
    return value[0];
}

std::string Object::toString() const {
    ObjectSpace& space = *handle().space;
    try {
        return space.text(*this);
    } catch (const PythonError&) {
        throw Error("toString needs a str, not a " + typeName());
    }
}

vd::Array Object::toArray() const {
    ObjectSpace& space = *handle().space;
    const Object source = converted(space, Helper::ArraySource, *this).object;
    if (source.address() == space.noneAddress()) {
        return vd::ArrayFactory().createArray<double>({1, 0});
    }
    const auto bufferCommand = [&](const char* command) {
        return space.run<vd::Array>([&](ObjectSpace::Request& request) {
            return request.send(command, {addressArray(source.address())}).at(0);
        });
    };
    vd::Array data = bufferCommand("pyBufferGetData");
    if (!data.isEmpty()) {
        return data;
    }
    // An empty answer is an empty buffer, or one whose elements have no host
    // type (the read then leaves a TypeError set).
    const std::string format = vd::CharArray(bufferCommand("pyBufferGetFormat")).toAscii();
    if (!format.empty() && format != "NOT_SUPPORTED") {
        return data;
    }
    space.connection()->post("pyErrorClear", {});
    throw Error("toArray cannot read the elements of a " + typeName() +
                ": their buffer format has no host array type");
}

std::vector<Object> Object::toList() const {
    ObjectSpace& space = *handle().space;
    const Object items = converted(space, Helper::ListSource, *this).object;
    return space.run<std::vector<Object>>([&](ObjectSpace::Request& request) {
        const vd::TypedArray<vd::Array> results(
            request.send("pyConvertSequenceToCell", {addressArray(items.address())}).at(0));
        std::vector<Object> elements;
        elements.reserve(results.getNumberOfElements());
        for (std::size_t i = 0; i < results.getNumberOfElements(); ++i) {
            const vd::StructArray result = vd::Array(results[i]);
            const vd::TypedArray<std::uint64_t> address = result[0]["object"];
            elements.push_back(request.adopt(address[0]));
        }
        return elements;
    });
}

// --- Session --------------------------------------------------------------------

Object Session::import(const std::string& module) {
    const std::shared_ptr<ObjectSpace> space = impl_->objects();
    space->prepare();
    struct Outcome {
        Object module;
        vd::Array report;
        Object error;
    };
    const Outcome outcome = space->run<Outcome>([&](ObjectSpace::Request& request) {
        Outcome o;
        const vd::Array reply = request.send("pyCreateModuleException", {textArray(module)}).at(0);
        if (reply.getType() == vd::ArrayType::STRUCT) {
            const vd::StructArray report(reply);
            const vd::TypedArray<std::uint64_t> error = report[0]["object"];
            o.report = reply;
            o.error = request.adopt(error[0]);
        } else {
            o.module = request.adopt(vd::TypedArray<std::uint64_t>(reply)[0]);
        }
        return o;
    });
    if (outcome.error.address() != 0) {
        space->throwReport(outcome.report, outcome.error);
    }
    return outcome.module;
}

Object Session::eval(const std::string& expression) {
    const std::shared_ptr<ObjectSpace> space = impl_->objects();
    return space->invoke(Helper::Eval, {expression, space->helper(Helper::MainDict)}).object;
}

void Session::exec(const std::string& code) {
    const std::shared_ptr<ObjectSpace> space = impl_->objects();
    space->invoke(Helper::Exec, {code, space->helper(Helper::MainDict)});
}

Object Session::main() {
    return impl_->objects()->helper(Helper::Main);
}

void Session::interrupt() {
    std::shared_ptr<ObjectSpace> space;
    {
        std::lock_guard<std::mutex> lock(impl_->mutex);
        if (impl_->closed || !impl_->space || impl_->space->connection() != impl_->connection) {
            return;  // no request of the current worker was ever sent
        }
        space = impl_->space;
    }
    space->interrupt();
}

}  // namespace vxpy
