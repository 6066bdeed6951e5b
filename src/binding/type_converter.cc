#include "binding/type_converter.h"

namespace kav {

template class TypedConverter<bool>;
template class TypedConverter<int8_t>;
template class TypedConverter<int16_t>;
template class TypedConverter<int32_t>;
template class TypedConverter<int64_t>;
template class TypedConverter<uint8_t>;
template class TypedConverter<uint16_t>;
template class TypedConverter<uint32_t>;
template class TypedConverter<uint64_t>;
template class TypedConverter<float>;
template class TypedConverter<double>;
template class TypedConverter<std::string>;
template class TypedConverter<BindingProperty>;

}  // namespace kav
