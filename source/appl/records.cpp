#include "records.h"

FileData::~FileData() = default;

ReplyData::ReplyData() = default;
ReplyData::ReplyData(const ReplyData &) = default;
ReplyData::ReplyData(ReplyData &&) noexcept = default;
ReplyData &ReplyData::operator=(const ReplyData &) = default;
ReplyData &ReplyData::operator=(ReplyData &&) noexcept = default;
ReplyData::~ReplyData() = default;

void ReplyData::clear()
{
    *this = ReplyData();
}

bool operator==(const ReplyData &left, const ReplyData &right)
{
    return left.tag == right.tag && left.replyType == right.replyType && left.data == right.data
        && left.fileData.filePath == right.fileData.filePath
        && left.fileData.tempFilePath == right.fileData.tempFilePath
        && left.fileData.hash == right.fileData.hash && left.fileData.size == right.fileData.size
        && left.fileData.resumeOffset == right.fileData.resumeOffset
        && left.request == right.request && left.directReply == right.directReply;
}
