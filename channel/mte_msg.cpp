// Placeholder definitions: replaced by the module's implementation.
#include "mte_msg.h"

uint32_t MTE_MSG_ItemSize(uint16_t usItem) { return {}; }
uint32_t MTE_MSG_CheckMsg(const uint8_t* pucMsg, uint32_t uiLen, MTE_MSG_HEAD_S* pstHead, uint8_t* pucReply) { return {}; }
uint32_t MTE_MSG_GetDataFromMsg(uint16_t usItem, uint32_t uiDataLen, uint32_t uiSize, const uint8_t* pucData, void* pOut) { return {}; }
uint32_t MTE_MSG_AppendData2Msg(uint16_t usItem, const void* pValue, uint32_t uiRoom, uint8_t* pucOut) { return {}; }
void MTE_MSG_SetResponseMsgHead(uint32_t uiResult, uint32_t uiFailedColumn, uint32_t uiDataLen, uint8_t* pucReply) {}
uint32_t MTE_MSG_IsSameOID(const MTE_OID_S* pstA, const MTE_OID_S* pstB) { return {}; }
void MTE_MSG_Oid2Str(const MTE_OID_S* pstOid, uint32_t uiSize, char* pszOut) {}
uint32_t MTE_MSG_BuildRequest(uint32_t uiSequence, uint16_t usMsgType, uint16_t usOperation, uint32_t uiColumnMask, uint16_t usItem, const void* pValue, uint8_t* pucOut, uint32_t uiCapacity) { return {}; }
uint32_t MTE_MSG_ParseReply(const uint8_t* pucMsg, uint32_t uiLen, MTE_MSG_REPLY_S* pstReply) { return {}; }
const char* MTE_MSG_ResultName(uint32_t uiCode) { return nullptr; }
