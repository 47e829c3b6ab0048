* Multiple response sets of the household survey.
* Run with:  mrset -d examples/survey.json examples/survey.sps

* News sources: a respondent counts for each source coded 1.
MRSET
  /MDGROUP NAME=$news LABEL='Sources of news'
     VARIABLES=news_tv TO news_web VALUE=1
  /MCGROUP NAME=$fruit LABEL='Favourite fruits' VARIABLES=fruit1 fruit2 fruit3.

* Pets, labelled by the value label of the counted value "Y".
MRSET /MDGROUP NAME=$pets VARIABLES=pet_cat pet_dog pet_fish VALUE='Y'
  CATEGORYLABELS=COUNTEDVALUES LABELSOURCE=VARLABEL.

MRSET /DISPLAY NAME=[$news $fruit $pets $shops].

* The shops set is not needed any more.
MRSET /DELETE NAME=[$shops] /DISPLAY NAME=ALL.
