#include <appserialization/Exceptions.hpp>

#include <messages/HostError.hpp>
#include <messages/LumenforgeMessages.hpp>

namespace appserialization::except {

void throwToKorval(const AppFileReaderExceptionBase& e) {
    namespace host = KORVAL::lumenforge::lumenforge;
    // The static type of `e` is the base; rethrowing finds out which exception it is.
    try {
        throw;
    } catch (const AppFileReaderInvalidFileName& caught) {
        hvErrMsgId(host::InvalidFileName(caught.getFileName()));
    } catch (const AppFileReaderInvalidFileExtension& caught) {
        hvErrMsgId(host::InvalidFileExtension(caught.getFileName()));
    } catch (const AppFileReaderInvalidFileExtensionCase& caught) {
        hvErrMsgId(host::InvalidFileExtensionCase(caught.getFileName()));
    } catch (...) {
        hvErrMsgId(host::LoadFailed(e.getFileName()));
    }
}

}  // namespace appserialization::except
