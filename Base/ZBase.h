#pragma once

// Every public header of the library.

#include <Base/frame/Allocator.h>
#include <Base/frame/Api.h>
#include <Base/frame/DeleteC.h>
#include <Base/frame/Environment.h>
#include <Base/frame/Exceptions.h>
#include <Base/frame/NoCopy.h>
#include <Base/frame/ProcessSettings.h>
#include <Base/frame/ReferenceCounted.h>
#include <Base/frame/ReferenceCountedImpl.h>
#include <Base/frame/ReturnPtr.h>
#include <Base/frame/ReturnPtrI.h>
#include <Base/frame/ReturnString.h>
#include <Base/frame/ReturnUString.h>
#include <Base/frame/ReturnWString.h>
#include <Base/frame/SmartPtrI.h>
#include <Base/frame/Threads.h>
#include <Base/frame/WideLiteral.h>
#include <Base/frame/WideString.h>
#include <Base/memory/Buffer.h>
#include <Base/messages/ConstMessageCursor.h>
#include <Base/messages/CursorOffset.h>
#include <Base/messages/Message.h>
#include <Base/messages/MessageCursor.h>
#include <Base/messages/MessageDomains.h>
#include <Base/messages/MessageFormat.h>
#include <Base/messages/SimpleMessageLocalizer.h>
#include <Base/messages/SystemErrors.h>
#include <Base/text/BinaryText.h>
#include <Base/text/MultibyteConversions.h>
#include <Base/text/NumberText.h>
#include <Base/text/UnicodeConversions.h>
