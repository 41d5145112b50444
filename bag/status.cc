// The text of each status.

#include <array>

#include "bag/bag.h"

namespace quarro {
namespace {

struct StatusText {
  bagStatus status;
  const char* text;
};

constexpr std::array kStatusTexts = {
    StatusText{kBagSuccess, "success"},
    StatusText{kBagBadArgument, "a pointer that must not be null is null"},
    StatusText{kBagOutOfMemory, "out of memory"},
    StatusText{kBagInternal, "unexpected failure inside the BAG library"},
    StatusText{kBagMetadataUnreadable, "the metadata file does not exist or cannot be read"},
    StatusText{kBagMetadataNotXml, "the metadata is not well-formed XML"},
    StatusText{kBagMetadataNoRoot, "the metadata's root element is not gmi:MI_Metadata"},
    StatusText{kBagMetadataNoGrid,
               "the metadata lacks gmd:spatialRepresentationInfo/gmd:MD_Georectified"},
    StatusText{kBagMetadataNoRowCount,
               "the metadata lacks the number of rows (gmd:axisDimensionProperties row, "
               "gmd:dimensionSize), or it is not a whole number of at least 1"},
    StatusText{kBagMetadataNoColumnCount,
               "the metadata lacks the number of columns (gmd:axisDimensionProperties column, "
               "gmd:dimensionSize), or it is not a whole number of at least 1"},
    StatusText{kBagMetadataNoRowSpacing,
               "the metadata lacks the spacing of rows (gmd:axisDimensionProperties row, "
               "gmd:resolution), or it is not a positive number"},
    StatusText{kBagMetadataNoColumnSpacing,
               "the metadata lacks the spacing of columns (gmd:axisDimensionProperties column, "
               "gmd:resolution), or it is not a positive number"},
    StatusText{kBagMetadataNoCorners,
               "the metadata lacks the corner points (gmd:cornerPoints, gml:coordinates), or they "
               "are not west,south east,north with west <= east and south <= north"},
    StatusText{kBagMetadataNoWestBound,
               "the metadata lacks gmd:westBoundLongitude, or it is not a longitude in degrees"},
    StatusText{kBagMetadataNoEastBound,
               "the metadata lacks gmd:eastBoundLongitude, or it is not a longitude in degrees"},
    StatusText{kBagMetadataNoSouthBound,
               "the metadata lacks gmd:southBoundLatitude, or it is not a latitude in degrees"},
    StatusText{kBagMetadataNoNorthBound,
               "the metadata lacks gmd:northBoundLatitude, or it is not a latitude in degrees"},
    StatusText{kBagMetadataGridContradiction,
               "the metadata's corner points, node counts and spacings contradict each other"},
    StatusText{kBagMetadataPlaceContradiction,
               "the metadata's corner points and geographic bounds contradict each other under its "
               "coordinate system (is the template for the other hemisphere?)"},
    StatusText{kBagNoSuchFolder, "the folder of the BAG file does not exist"},
    StatusText{kBagNotRegularFile,
               "the path of the BAG file is taken by something that is not a regular file"},
    StatusText{kBagCreateFailed,
               "the BAG file cannot be created (check permissions, free space and whether another "
               "program has it open)"},
    StatusText{kBagWriteFailed, "the BAG file cannot be written (check the free space)"},
    StatusText{kBagReadFailed, "what was written to the BAG file cannot be read back"},
    StatusText{kBagCloseFailed,
               "the BAG file cannot be completed on closing (check the free space)"},
    StatusText{kBagNotVariableResolution,
               "the definition of the BAG file does not ask for variable resolution"},
    StatusText{kBagLayersExist, "the BAG file has its variable-resolution layers already"},
    StatusText{kBagTooManyRefinedNodes, "a BAG file holds at most 4294967295 refined nodes"},
    StatusText{kBagUnknownSurface, "no layer has this surface code"},
    StatusText{kBagLayerMissing, "the BAG file was made without this layer"},
    StatusText{kBagRowOutOfRange, "the row lies outside the layer"},
    StatusText{kBagColumnsOutOfRange,
               "the columns lie outside the layer, or the first one lies after the last one"}};

}  // namespace

int bagGetErrorString(bagError status, const char** text) {
  if (text == nullptr) return 1;
  for (const StatusText& candidate : kStatusTexts) {
    if (static_cast<bagError>(candidate.status) == status) {
      *text = candidate.text;
      return 0;
    }
  }
  return 1;
}

}  // namespace quarro
