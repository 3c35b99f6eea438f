// Umbrella header: includes every public header of the library and the platform headers its
// interface uses, so a host needs only this one.
#pragma once

#include "sgx/general/SgxCountedPtr.h"
#include "sgx/general/SgxCyclicPtr.h"
#include "sgx/general/SgxException.h"
#include "sgx/general/SgxInstanceId.h"
#include "sgx/general/SgxLogBase.h"
#include "sgx/general/SgxSimplePtr.h"
#include "sgx/general/SgxString.h"
#include "sgx/general/SgxVersion.h"

#include "rw/RWFile.h"
#include "rw/RWbstream.h"

#include "tarnel/core/TNAttrType.h"
#include "tarnel/core/TNChecked.h"
#include "tarnel/core/TNCollectable.h"
#include "tarnel/core/TNException.h"
#include "tarnel/core/TNValue.h"
#include "tarnel/core/Tarnel.h"

#include "tarnel/metamodel/TNAttrDesc.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/metamodel/TNMetamodelVersion.h"
#include "tarnel/metamodel/TNSchema.h"

#include "tarnel/navigation/TNAssociation.h"
#include "tarnel/navigation/TNAssociationTraversal.h"
#include "tarnel/navigation/TNBuiltinAssociations.h"
#include "tarnel/navigation/TNClassIdentifier.h"
#include "tarnel/navigation/TNCompare.h"
#include "tarnel/navigation/TNTaggedValueApplicator.h"
#include "tarnel/navigation/TNTraversalParser.h"

#include "tarnel/instances/TNAttr.h"
#include "tarnel/instances/TNLinkView.h"
#include "tarnel/instances/TNObject.h"

#include "tarnel/expressions/TNCollectionExpr.h"
#include "tarnel/expressions/TNExpr.h"
#include "tarnel/expressions/TNExprCheck.h"
#include "tarnel/expressions/TNExtensionExpr.h"
#include "tarnel/expressions/TNExprOwner.h"
#include "tarnel/expressions/TNQuantifierExpr.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/expressions/TNStringExpr.h"

#include "tarnel/query/TNQuery.h"
