// Writes a record as XML and reads it back, with the XML module of the package.

#include <Base/ZBase.h>

#include <cstdio>
#include <string>

int main() {
    ZBase::Message record(ZBase::MESSAGE_DOMAIN_SERVER, 7, "The name \"%1\" is not UTF-8.");
    record << "caf\xC3\xA9";
    std::string document;
    ZBase::SerializeToXML(record, *ZLiteXML::CreateStringWriter(document, {.replace = true}));
    std::fputs(document.c_str(), stdout);

    ZBase::Message back;
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(ZBase::GetSerializerFromXML(back, *reader).Get());
    reader->Read(document.data(), document.size());
    reader->Finish();
    return back.GetID() == 7 && std::string(back.GetParameter(0)) == record.GetParameter(0) ? 0 : 1;
}
