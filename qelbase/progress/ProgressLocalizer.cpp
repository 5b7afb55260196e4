#include "qelbase/progress/ProgressLocalizer.h"

#include <array>
#include <cstdint>
#include <string_view>

#include "qelbase/outside/components/formatting.h"

namespace {

struct Row {
  std::string_view key;
  std::wstring_view text;
};

// clang-format off
constexpr Row kRows[] = {
    {"QelSDK.Triangles.Data.MContourEdgesOverlapper.MContourEdgesOverlapper", L"Preparing data"},
    {"QelSDK.Triangles.Data.MContourEdgesOverlapper.Operate", L"Joining shells"},
    {"QelSDK.Triangles.Data.MStlBase.LoadCompressed.1", L"Reading"},
    {"QelSDK.Triangles.Data.MStlBase.LoadCompressed.2", L"Uncompressing"},
    {"QelSDK.Triangles.Data.MStlBase.SaveCompressed.1", L"Compressing"},
    {"QelSDK.Triangles.Data.MStlBase.SaveCompressed.2", L"Writing"},
    {"QelSDK.Triangles.Data.MStlBaseFileUtilities.ReadAsciiAndRemoveIndenticalTriangles",
     L"Loading ASCII"},
    {"QelSDK.Triangles.Data.MStlCloner.CloneCurves", L"Copying curves"},
    {"QelSDK.Triangles.Data.MStlCloner.CloneGraphs", L"Copying graphs"},
    {"QelSDK.Triangles.Data.MStlCloner.CloneStl", L"Copying STL"},
    {"QelSDK.Triangles.Data.MStlCloner.CloneSurfaces", L"Copying triangles"},
    {"QelSDK.Triangles.Data.MStlCompact.ConvertFromStlBase", L"Compressing STL"},
    {"QelSDK.Triangles.Data.MStlCompact.ConvertToStlBase", L"Upgrading STL"},
    {"QelSDK.Triangles.Data.MStlCompact.ShareVertices", L"Sharing vertices"},
    {"QelSDK.Triangles.Data.MStlCompressedStreamerOut.Save", L"Compressing STL"},
    {"QelSDK.Triangles.Data.MStlCompressor.Operate", L"Compressing STL"},
    {"QelSDK.Triangles.Data.MStlDataWireFrame._Recalculate", L"Calculating wireframe"},
    {"QelSDK.Triangles.Data.MStlFileIO._LoadStl", L"Loading part"},
    {"QelSDK.Triangles.Data.MStlFileIO._SaveStl", L"Saving part"},
    {"QelSDK.Triangles.Data.MStlHybrid.SwitchToStandard", L"Upgrading STL"},
    {"QelSDK.Triangles.Tooling.M2dField.ADD_3D_TRIANGLE_INTERSECTIONS_TO_EDGE_LIST",
     L"Dividing data"},
    {"QelSDK.Triangles.Tooling.M2dField.ADD_VERTICAL_TRIANGLES", L"Adding verticals"},
    {"QelSDK.Triangles.Tooling.M2dField.CalculateEdgeIntersections.1", L"Dividing data"},
    {"QelSDK.Triangles.Tooling.M2dField.CalculatePartingPlanes.1",
     L"Calculating parting lines (lower, upper, undercuts)"},
    {"QelSDK.Triangles.Tooling.M2dField.CalculatePartingPlanes.2",
     L"Calculating parting lines (lower, upper)"},
    {"QelSDK.Triangles.Tooling.M2dField.CalculatePartingPlanes.3",
     L"Calculating parting lines (lower, undercuts)"},
    {"QelSDK.Triangles.Tooling.M2dField.CalculatePartingPlanes.4",
     L"Calculating parting lines (lower)"},
    {"QelSDK.Triangles.Tooling.M2dField.CalculatePartingPlanes.5",
     L"Calculating parting lines (upper, undercuts)"},
    {"QelSDK.Triangles.Tooling.M2dField.CalculatePartingPlanes.6",
     L"Calculating parting lines (upper)"},
    {"QelSDK.Triangles.Tooling.M2dField.CalculatePartingPlanes.7",
     L"Calculating parting lines (undercuts)"},
    {"QelSDK.Triangles.Tooling.M2dField.EliminatePointsInTriangles.1", L"Preparing data mode 2"},
    {"QelSDK.Triangles.Tooling.M2dField.EliminatePointsOnEdgeOfTriangles", L"Retriangulating"},
    {"QelSDK.Triangles.Tooling.M2dField.EliminatePointsOnEdgesOfTriangles",
     L"Preparing data mode 1"},
    {"QelSDK.Triangles.Tooling.M2dField.FIND_SURROUNDING_TRIANGLES", L"Preparing data mode 3"},
    {"QelSDK.Triangles.Tooling.M2dField.LINK_PARTING_PLANES.1", L"Linking parting planes"},
    {"QelSDK.Triangles.Tooling.M2dField.LINK_PARTING_PLANES.2",
     L"Searching near parting line triangles"},
    {"QelSDK.Triangles.Tooling.M2dField.REDUCE_MULTIPLE_MODE", L"Reducing data mode 2"},
    {"QelSDK.Triangles.Tooling.M2dField.REDUCE_SIMPLE_MODE", L"Reducing data mode 1"},
    {"QelSDK.Triangles.Tooling.M2dField.REMAKE_STL", L"Recreating STL"},
    {"QelSDK.Triangles.Tooling.M2dField.RetriangulateOnBadEdges", L"Retriangulating"},
    {"QelSDK.Triangles.Tooling.M2dField.SWITCH_TRIANGLE_LISTS", L"Switching triangle lists"},
    {"QelSDK.Triangles.Tooling.M2dField.TAKE_NEW_TRIANGLES", L"Switching to new triangle list"},
    {"QelSDK.Triangles.Tooling.M2dField.UPDATE_OUTPUTS", L"Creating cavities"},
    {"QelSDK.Triangles.Tooling.M2dFieldContourMaker.CreateSubTrianglesInSubFields",
     L"Creating field border"},
    {"QelSDK.Triangles.Tooling.MtlOperatorField2StlConvertor.Convert", L"Recreating STL"},
    {"QelSliceImageStlOperations.QelStlMSliceToStlOperator.Operate", L"Converting SLC to STL"},
    {"QelStlCutting.MStlBaseOperatorCutWithPins.Operate", L"Cut with pins operator"},
    {"QelStlCutting.MStlBaseOperatorPlaneCut.Operate", L"Cut with plane"},
    // Known, and not shown.
    {"QelSDK.Triangles.Data.MStlBase.LoadCompressed", L""},
    {"QelSDK.Triangles.Data.MStlBase.SaveCompressed", L""},
    {"QelSDK.Triangles.Data.MStlBaseFileUtilities.ReadAsciiAndRemoveIndenticalTriangles.1", L""},
    {"QelSDK.Triangles.Data.MStlBaseFileUtilities.ReadAsciiAndRemoveIndenticalTriangles.2", L""},
    {"QelSDK.Triangles.Data.MStlBaseFileUtilities.ReadFilePartly", L""},
    {"QelSDK.Triangles.Data.MStlBaseFileUtilities.WriteAsciiFILE", L""},
    {"QelSDK.Triangles.Data.MStlBaseFileUtilities.WriteAsciiMFile", L""},
    {"QelSDK.Triangles.Data.MStlBaseFileUtilities.WriteAsciiWithMultipleSurfacesFILE", L""},
    {"QelSDK.Triangles.Data.MStlBaseFileUtilities.WriteAsciiWithMultipleSurfacesMFile", L""},
    {"QelSDK.Triangles.Data.MStlBaseFileUtilities.WriteSurfaceToAsciiStlFileFILE", L""},
    {"QelSDK.Triangles.Data.MStlBaseFileUtilities.WriteSurfaceToAsciiStlFileMFile", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneColorMaskPoints", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneColorMasks", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneColorMaskSurfaces", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneColorMaskTrianglePoints", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneColorMaskTriangles", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneCurve", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneCurveSet", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneCurveSet.1", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneDataMasks", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneFeature", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneFeature.1", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneFeature.2", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneFeature.3", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneFeature.4", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneFeature.5", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneGraph", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneIndexMaskPoints", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneIndexMaskTriangles", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneMasks", L""},
    {"QelSDK.Triangles.Data.MStlCloner._ClonePoints", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneScalarMaskPoints", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneScalarMaskTriangles", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneStandard", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneSurface", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneVectorMaskPoints", L""},
    {"QelSDK.Triangles.Data.MStlCloner._CloneVectorMaskTriangles", L""},
    {"QelSDK.Triangles.Data.MStlCompact._ConvertTrianglesToStlBase", L""},
    {"QelSDK.Triangles.Data.MStlCompact.ConvertToStlBase.1", L""},
    {"QelSDK.Triangles.Data.MStlCompactHybrid._ConvertTrianglesToStlBase", L""},
    {"QelSDK.Triangles.Data.MStlFileReader._ReadAllTriangles", L""},
    {"QelSDK.Triangles.Data.MStlFileWriter.WriteStlBase", L""},
    {"QelSDK.Triangles.Data.MStlFileWriter.WriteStlFeature", L""},
    {"QelSDK.Triangles.Data.MStlFileWriter.WriteStlSurface", L""},
    {"QelSDK.Triangles.Data.MStlHybrid._ConvertTrianglesCompactToOnDisk", L""},
    {"QelSDK.Triangles.Data.MStlHybrid._ConvertTrianglesOnDiskToCompact", L""},
    {"QelSDK.Triangles.Data.MStlHybrid._ConvertTrianglesOnDiskToStandard", L""},
    {"QelSDK.Triangles.Data.MStlHybrid._ConvertTrianglesStandardToOnDisk", L""},
    {"QelSDK.Triangles.Data.MStlStitcher.EXECUTE", L""},
    {"QelSDK.Triangles.Data.MStlSurfaceStitcher.Operate.1", L""},
    {"QelSDK.Triangles.Data.MStlSurfaceStitcher.Operate.2", L""},
    {"QelSDK.Triangles.Slicer.MStlOperatorSlicerZ.Operate", L""},
    {"QelSDK.Triangles.Tooling.M2dDentalField.RemoveDentalUndercuts", L""},
    {"QelSDK.Triangles.Tooling.M2dField.CalculateBorder", L""},
    {"QelSDK.Triangles.Tooling.M2dField.CalculateEdgeIntersections", L""},
    {"QelSDK.Triangles.Tooling.M2dField.CalculatePartingPlanes", L""},
    {"QelSDK.Triangles.Tooling.M2dField.DivideCompleteStlToSubFields", L""},
    {"QelSDK.Triangles.Tooling.M2dField.DivideFieldToSubFields", L""},
    {"QelSDK.Triangles.Tooling.M2dField.DRAFT_FIELD", L""},
    {"QelSDK.Triangles.Tooling.M2dField.EliminatePointsInTriangles", L""},
    {"QelSDK.Triangles.Tooling.M2dField.EliminatePointsOnEdgesOfTriangles.1", L""},
    {"QelSDK.Triangles.Tooling.M2dField.LINK_PARTING_PLANES", L""},
    {"QelSDK.Triangles.Tooling.M2dField.PREPARE_FOR_DRAFT", L""},
    {"QelSDK.Triangles.Tooling.M2dField.REDUCE", L""},
    {"QelSDK.Triangles.Tooling.M2dField.REMOVE_DRAFT", L""},
    {"QelSDK.Triangles.Tooling.M2dField.UNDO_LAST_DRAFT_OPERATION", L""},
    {"QelSDK.Triangles.Tooling.M2dFieldDraftCreator.CREATE_DRAFT_ON_FIELD", L""},
    {"QelSDK.Triangles.Tooling.M2dFieldSaver.IO", L""},
    {"QelSDK.Triangles.Tooling.M2dFieldSaver.IO_DRAFT_FIELDS", L""},
    {"QelSDK.Triangles.Tooling.MtlOperatorField2StlConvertor._CreateNonVerticalTriangles", L""},
    {"QelSDK.Triangles.Tooling.MtlOperatorField2StlConvertor._CreateVerticalTriangles", L""},
    {"QelSDK.Triangles.Tooling.MtlOperatorFillFreeform._CreateGridTriangles", L""},
    {"QelStlCutting.AU.CutWithPlane", L""},
    {"QelStlCutting.DoubleHolesAttacher.Attach", L""},
    {"QelStlCutting.MCutter._CreateEdgeList", L""},
    {"QelStlCutting.MCutter._MakeCutAlongPolyline", L""},
    {"QelStlCutting.MCutter.CLASSIFY_TRIANGLES", L""},
    {"QelStlCutting.MCutter.DIVIDE_DATA", L""},
    {"QelStlCutting.MCutter.DIVIDE_TO_CUT_DATA", L""},
    {"QelStlCutting.MCutter.EDGES_INTERSECT", L""},
    {"QelStlCutting.MCutter.FINAL_CUT_REMOVE", L""},
    {"QelStlCutting.MCutter.MAKE_CUT", L""},
    {"QelStlCutting.MCutter.MAKE_CUT_AT_VALUE", L""},
    {"QelStlCutting.MCutter.MAKE_DEPTH_CUT", L""},
    {"QelStlCutting.MCutter.MAKE_SUPPORT_CUT", L""},
    {"QelStlCutting.MCutter.REMOVE_CUT_POINTS_IN_TRIANGLES", L""},
    {"QelStlCutting.MStlBaseOperatorCreateZRange._CutOff", L""},
    {"QelStlCutting.MStlBaseOperatorCreateZRange.Operate", L""},
    {"QelStlCutting.MStlBaseOperatorCutWithPins._AttachToCutParts", L""},
    {"QelStlCutting.MStlBaseOperatorCutWithPins._SectionCut", L""},
    {"QelStlCutting.PinAttacherSimple.Attach", L""},
    {"QelStlCutting.PinAttachFunctions.AttachPins", L""},
    {"QelStlCutting.PinAttachFunctions.AttachHoles", L""},
};
// clang-format on

// The keys differ most at their ends, where the class and the operation stand: the length and three
// words of eight bytes from there are enough to tell them apart.
constexpr std::size_t kShortest = 24;

constexpr std::uint64_t Word(const char* bytes) {
  std::uint64_t word = 0;
  for (int i = 0; i < 8; ++i) {
    word |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
  }
  return word;
}

constexpr std::uint64_t Hash(std::string_view key) {
  const char* const end = key.data() + key.size();
  std::uint64_t hash = key.size();
  for (const int back : {8, 16, 24}) hash = (hash ^ Word(end - back)) * 0x9E3779B97F4A7C15u;
  return hash ^ (hash >> 32);
}

// An open-addressed table of row numbers (from 1), built by the compiler.
constexpr std::size_t kSlots = 1024;

constexpr auto kTable = [] {
  std::array<std::uint8_t, kSlots> table{};
  std::uint8_t number = 0;
  for (const Row& row : kRows) {
    auto slot = Hash(row.key) % kSlots;
    while (table[slot] != 0) slot = (slot + 1) % kSlots;
    table[slot] = ++number;
  }
  return table;
}();

const Row* Find(std::string_view key) {
  if (key.size() < kShortest) return nullptr;
  for (auto slot = Hash(key) % kSlots; kTable[slot] != 0; slot = (slot + 1) % kSlots) {
    const Row& row = kRows[kTable[slot] - 1];
    if (row.key == key) return &row;
  }
  return nullptr;
}

}  // namespace

namespace QelBase {

std::wstring ProgressLocalizer::Localize(const std::string& key) {
  if (const Row* row = Find(key)) return std::wstring(row->text);
  return QelStdBase::ConvertAnsiToUnicode(key);
}

}  // namespace QelBase
